#include "ui/viewport/viewport.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "base/files/paths.h"
#include "gs/data/view_loader.h"

namespace quor::ui {
namespace {

constexpr auto kMovingFor = std::chrono::milliseconds(200);  // after the last movement
constexpr double kNearPlane = 0.01;                          // of the scene's extent, as in training
constexpr int kPhotographEdge = 1600;                        // pixels that a compared photograph is read at, at most
constexpr double kFrustumNear = 1e-3;

// The largest picture of `camera`'s shape in that much room.
gs::Camera fitted(const gs::Camera& camera, int width, int height) {
  const double scale = std::min(static_cast<double>(width) / camera.width, static_cast<double>(height) / camera.height);
  const auto edge = [&](int length) { return std::max(1, static_cast<int>(std::lround(length * scale))); };
  return camera.resized(edge(camera.width), edge(camera.height));
}

}  // namespace

Viewport::Viewport(SceneRenderer& renderer, LogStore& log) : renderer_(renderer), log_(log) {}

void Viewport::setSource(const ViewSource& source) {
  if (source.generation == source_.generation) return;
  const bool sameDataset = source.dataset == source_.dataset && cameras_ != nullptr;
  const bool sameScene = source.scene == source_.scene;
  source_ = source;
  problem_.clear();
  if (!sameDataset) {
    leavePhoto();
    cameras_.reset();
    eyePlaced_ = false;
    renderer_.setPoints(nullptr);
  }
  if (!sameScene || source.scene.empty()) {
    haveScene_ = false;
    renderer_.setScene(nullptr);
    if (sameDataset && source.dataset.empty()) eyePlaced_ = false;
  }
  if (!source.dataset.empty()) loadDataset(source.dataset);
  if (!source.scene.empty()) loadScene(source.scene);
}

void Viewport::loadDataset(const std::filesystem::path& dataset) {
  background_.run(
      "Reading the cameras", [dataset] { return std::make_shared<const CameraSet>(loadCameras(dataset)); },
      [this, dataset](std::shared_ptr<const CameraSet> loaded) {
        if (dataset != source_.dataset) return;
        leavePhoto();  // a new solve may have other photographs
        cameras_ = std::move(loaded);
        renderer_.setPoints(cameras_->points);
        if (!eyePlaced_) placeEye(nullptr);
      },
      [this](const std::string& sentence) { log_.warning(problem_ = sentence); });
}

void Viewport::loadScene(const std::filesystem::path& file) {
  struct Loaded {
    std::shared_ptr<const gs::GaussianSet> set;
    Ball ball;
  };
  background_.run(
      "Reading the scene",
      [file, &log = log_] {
        Loaded loaded{ui::loadScene(file), {}};
        loaded.ball = ballOf(*loaded.set);
        log.info("Loaded " + std::to_string(loaded.set->count) + " splats from " + toUtf8(file));
        return loaded;
      },
      [this, file](const Loaded& loaded) {
        if (file != source_.scene) return;
        haveScene_ = true;
        sceneBall_ = loaded.ball;
        renderer_.setScene(loaded.set);
        if (!eyePlaced_) placeEye(loaded.set.get());
      },
      [this](const std::string& sentence) { log_.error(problem_ = sentence); });
}

// From a photograph's place where there is one: that is where the scene looks as it should.
void Viewport::placeEye(const gs::GaussianSet* scene) {
  eyePlaced_ = true;
  if (cameras_ && !cameras_->photos.empty()) {
    eye_ = OrbitCamera();
    eye_.take(cameras_->photos[cameras_->photos.size() / 2].source.camera, cameras_->viewDistance);
    eye_.setUp(cameras_->geometry.up);
  } else if (scene != nullptr || haveScene_) {
    eye_ = OrbitCamera();
    eye_.frame(sceneBall_.centre, sceneBall_.radius);
  }
}

void Viewport::reset() {
  leavePhoto();
  placeEye(nullptr);
}

void Viewport::setLive(bool live) {
  live_ = live;
}

void Viewport::update() {
  background_.update();
}

bool Viewport::anythingToShow() const {
  return live_ || haveScene_ || (cameras_ && cameras_->points);
}

OrbitCamera& Viewport::move() {
  leavePhoto();
  lastMove_ = Clock::now();
  return eye_;
}

bool Viewport::moving() const {
  return Clock::now() - lastMove_ < kMovingFor;
}

void Viewport::lookFrom(size_t photo) {
  if (!cameras_ || photo >= cameras_->photos.size()) return;
  photo_ = photo;
  photograph_.reset();
  ++photographVersion_;
  photographCamera_ = cameras_->photos[photo].source.camera;
  eye_.take(photographCamera_, cameras_->viewDistance);
  loadPhotograph();
}

void Viewport::leavePhoto() {
  if (!photo_) return;
  photo_.reset();
  photograph_.reset();
  ++photographVersion_;
  eye_.setUp(eye_.up());
}

void Viewport::loadPhotograph() {
  const PosedPhoto& posed = cameras_->photos[*photo_];
  background_.run(
      "Reading the photograph",
      [posed, images = cameras_->images] {
        std::optional<Image> image = gs::readPhotograph(images, posed.name);
        if (!image) throw std::runtime_error("The photograph " + posed.name + " cannot be read.");
        return gs::viewOf(std::move(*image), posed.name, posed.source, kPhotographEdge);
      },
      [this, name = posed.name](gs::LoadedView view) {
        if (!photo_ || !cameras_ || cameras_->photos[*photo_].name != name) return;
        photograph_ = std::move(view.image);
        photographCamera_ = view.camera;
        ++photographVersion_;
      },
      [this](const std::string& sentence) { log_.warning(problem_ = sentence); });
}

gs::Camera Viewport::camera(int width, int height) const {
  if (!photo_) return eye_.camera(width, height);
  const bool beside = compare == Compare::SideBySide;
  return fitted(photographCamera_, beside ? std::max(width / 2, 1) : width, height);
}

void Viewport::draw(int width, int height) {
  if (!anythingToShow()) {
    if (asked_) renderer_.request(std::nullopt);
    asked_.reset();
    return;
  }
  RenderRequest request;
  request.camera = camera(std::max(width, 1), std::max(height, 1));
  // Before there is a scene the points are all there is to see.
  request.shown = !live_ && !haveScene_ ? Shown::Points : shown;
  request.shDegree = shDegree;
  request.splatScale = splatScale;
  request.background = background;
  const double extent = cameras_ ? cameras_->geometry.extent : sceneBall_.radius;
  request.nearPlane = static_cast<float>(kNearPlane * extent);
  request.live = live_;
  request.moving = moving();
  if (asked_ && *asked_ == request) return;
  asked_ = request;
  renderer_.request(request);
}

std::optional<std::array<std::array<double, 2>, 5>> frustumOnScreen(const gs::Camera& camera, double size,
                                                                    const gs::Camera& view) {
  const auto& r = camera.rotation;
  const Vec3 right = {r[0], r[1], r[2]}, down = {r[3], r[4], r[5]}, forward = {r[6], r[7], r[8]};
  const Vec3 centre = camera.centre();
  std::array<Vec3, 5> points = {centre};
  for (size_t corner = 0; corner < 4; ++corner) {
    const double u = corner == 1 || corner == 2 ? camera.width : 0, v = corner >= 2 ? camera.height : 0;
    points[corner + 1] = centre + (size * (u - camera.cx) / camera.fx) * right +
                         (size * (v - camera.cy) / camera.fy) * down + size * forward;
  }
  std::array<std::array<double, 2>, 5> screen;
  for (size_t i = 0; i < points.size(); ++i) {
    const auto& w = view.rotation;
    const auto along = [&](size_t row) {
      return dot({w[3 * row], w[3 * row + 1], w[3 * row + 2]}, points[i]) + view.translation[row];
    };
    const double depth = along(2);
    if (depth < kFrustumNear * size) return std::nullopt;
    screen[i] = {view.fx * along(0) / depth + view.cx, view.fy * along(1) / depth + view.cy};
  }
  return screen;
}

}  // namespace quor::ui
