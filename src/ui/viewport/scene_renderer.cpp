#include "ui/viewport/scene_renderer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <utility>

#include "base/crash/crash_handler.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/memory/transfer.h"
#include "gs/render/kernels/interfaces.h"
#include "gs/render/renderer.h"

namespace quor::ui {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

// How often it is looked whether the training has left a new copy.
constexpr auto kLivePoll = std::chrono::milliseconds(15);

double pixelsOf(const gs::Camera& camera) {
  return static_cast<double>(camera.width) * camera.height;
}

gs::Camera scaled(const gs::Camera& camera, double edges) {
  const auto edge = [&](int length) { return std::max(1, static_cast<int>(std::lround(length * edges))); };
  return camera.resized(edge(camera.width), edge(camera.height));
}

}  // namespace

struct SceneRenderer::Gpu {
  Gpu(gs::VulkanContext& context, gs::KernelRegistry& registry)
      : stream(context, registry),
        transfer(context),
        scene(context, gs::SplatStore::Use::RenderOnly),
        points(context, gs::SplatStore::Use::RenderOnly),
        both(context, gs::SplatStore::Use::RenderOnly),
        renderer(context, registry, gs::Renderer::Mode::RenderOnly) {}

  gs::ComputeStream stream;
  gs::Transfer transfer;
  gs::SplatStore scene, points, both;
  int sceneDegree = 3;
  gs::Renderer renderer;
  gs::GpuBuffer packed, readback;
  uint64_t liveVersion = 0;  // of the last picture
  Clock::time_point rested;  // when the training has had its share
};

SceneRenderer::SceneRenderer(gs::VulkanContext& context, gs::KernelRegistry& registry, gs::LiveScene& live,
                             LogStore& log)
    : context_(context), registry_(registry), live_(live), log_(log), thread_([this] {
        const ThreadCrashStack stack;
        run();
      }) {}

SceneRenderer::~SceneRenderer() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void SceneRenderer::setScene(std::shared_ptr<const gs::GaussianSet> scene) {
  {
    const std::lock_guard lock(mutex_);
    scene_ = std::move(scene);
    sceneIsNew_ = requestIsNew_ = true;
  }
  wake_.notify_all();
}

void SceneRenderer::setPoints(std::shared_ptr<const gs::GaussianSet> points) {
  {
    const std::lock_guard lock(mutex_);
    points_ = std::move(points);
    pointsAreNew_ = requestIsNew_ = true;
  }
  wake_.notify_all();
}

void SceneRenderer::request(const std::optional<RenderRequest>& request) {
  {
    const std::lock_guard lock(mutex_);
    request_ = request;
    requestIsNew_ = request_.has_value();
  }
  wake_.notify_all();
}

std::optional<RenderedPicture> SceneRenderer::take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(picture_, std::nullopt);
}

bool SceneRenderer::upToDate() const {
  const std::lock_guard lock(mutex_);
  return !requestIsNew_ && !drawing_ && !picture_ && !(request_ && request_->live);
}

std::string SceneRenderer::failure() const {
  const std::lock_guard lock(mutex_);
  return failure_;
}

void SceneRenderer::run() {
  try {
    Gpu gpu(context_, registry_);
    std::vector<std::string> kernels = gpu.renderer.kernelNames();
    for (const char* name : {"rgb_to_rgba8", "activate_scaled"}) kernels.emplace_back(name);
    registry_.prepare(kernels);
    std::unique_lock lock(mutex_);
    while (waitForWork(gpu, lock)) {
      const RenderRequest request = *request_;
      requestIsNew_ = false;
      drawing_ = true;
      const bool newScene = std::exchange(sceneIsNew_, false), newPoints = std::exchange(pointsAreNew_, false);
      const std::shared_ptr<const gs::GaussianSet> scene = scene_, points = points_;
      lock.unlock();
      if (newScene) {
        gpu.scene.upload(gpu.transfer, scene ? *scene : gs::GaussianSet());
        gpu.sceneDegree = scene ? scene->shDegree : 0;
      }
      if (newPoints) gpu.points.upload(gpu.transfer, points ? *points : gs::GaussianSet());
      draw(gpu, request);
      lock.lock();
      drawing_ = false;
    }
  } catch (const std::exception& error) {
    const std::string text = std::string("The view cannot be drawn any more: ") + error.what();
    log_.error(text);
    const std::lock_guard lock(mutex_);
    failure_ = text;
    drawing_ = requestIsNew_ = false;
  }
}

// Holds the lock when it returns; false when the end has come.
bool SceneRenderer::waitForWork(Gpu& gpu, std::unique_lock<std::mutex>& lock) {
  for (;;) {
    if (ending_) return false;
    const bool live = request_ && request_->live;
    if (!live) {
      if (request_ && requestIsNew_) return true;
      wake_.wait(lock);
      continue;
    }
    const auto now = Clock::now();
    if (now >= gpu.rested) {
      if (requestIsNew_) return true;
      live_.want();
      lock.unlock();
      const bool fresh = live_.read().version() != gpu.liveVersion;
      lock.lock();
      if (fresh && request_) return true;
    }
    wake_.wait_for(lock, std::clamp<Milliseconds>(gpu.rested - now, Milliseconds(1), kLivePoll));
  }
}

void SceneRenderer::draw(Gpu& gpu, const RenderRequest& request) {
  const auto start = Clock::now();
  const auto drawFrom = [&](const gs::SplatStore& scene, int degree) {
    if (request.shown == Shown::Splats) return drawSplats(gpu, scene, degree, request);
    if (request.shown == Shown::Points) return drawSplats(gpu, gpu.points, 0, request);
    gpu.both.reserve(scene.count() + gpu.points.count());
    gpu.both.copyValues(gpu.stream, scene, 0);
    gpu.both.copyValues(gpu.stream, gpu.points, scene.count());
    return drawSplats(gpu, gpu.both, degree, request);
  };
  std::optional<RenderedPicture> picture;
  if (request.live) {
    const gs::LiveScene::Reading reading = live_.read();
    gpu.liveVersion = reading.version();
    // Before the first step there are only the points.
    picture = reading.version() > 0 ? drawFrom(reading.splats(), reading.shDegree())
                                    : drawSplats(gpu, gpu.points, 0, request);
  } else {
    if (std::exchange(gpu.liveVersion, 0) > 0) live_.clear();  // the training is over: its copy's memory is free again
    picture = drawFrom(gpu.scene, gpu.sceneDegree);
  }
  picture->milliseconds = Milliseconds(Clock::now() - start).count();
  const std::lock_guard lock(mutex_);
  pacer_.drawn(static_cast<double>(picture->width) * picture->height, picture->milliseconds);
  gpu.rested = Clock::now() + std::chrono::duration_cast<Clock::duration>(Milliseconds(pacer_.pause(request.moving)));
  picture_ = std::move(picture);
}

RenderedPicture SceneRenderer::drawSplats(Gpu& gpu, const gs::SplatStore& splats, int shDegree,
                                          const RenderRequest& request) {
  double edges = 1;
  {
    const std::lock_guard lock(mutex_);
    edges = pacer_.edgeScale(pixelsOf(request.camera), request.moving);
  }
  const gs::Camera camera = scaled(request.camera, edges);
  RenderedPicture picture;
  picture.width = camera.width;
  picture.height = camera.height;
  picture.camera = request.camera;
  picture.splats = splats.count();
  const auto pixels = static_cast<uint32_t>(camera.width) * static_cast<uint32_t>(camera.height);
  picture.rgba.resize(size_t{4} * pixels);
  if (splats.count() == 0) {
    for (size_t i = 0; i < picture.rgba.size(); ++i) {
      const float value = i % 4 == 3 ? 1.0f : std::clamp(request.background[i % 4], 0.0f, 1.0f);
      picture.rgba[i] = static_cast<uint8_t>(std::lround(255.0f * value));
    }
    return picture;
  }

  // A training that began meanwhile may have found which blending kernel is fastest here.
  if (const auto forward = registry_.chosenVariant("rasterize_forward")) gpu.renderer.setForward(*forward);
  gpu.renderer.reserve(splats.count(), camera.width, camera.height);
  gpu.renderer.setSplatScale(request.splatScale);
  gpu.renderer.project(gpu.stream, splats, camera, std::min(shDegree, request.shDegree), request.nearPlane);
  gpu.renderer.rasterize(gpu.stream, request.background);
  if (gpu.packed.size() < picture.rgba.size()) {
    gpu.packed = gs::GpuBuffer(context_, picture.rgba.size(), gs::BufferKind::Device, "viewport");
    gpu.readback = gs::GpuBuffer(context_, picture.rgba.size(), gs::BufferKind::Readback, "viewport readback");
  }
  gpu.stream.dispatch1D(gs::kernels::RgbToRgba8{.rgb = &gpu.renderer.image(), .packedBytes = &gpu.packed}, {pixels},
                        pixels);
  gpu.stream.copy(gpu.packed, gpu.readback, picture.rgba.size());
  gpu.stream.submit();
  std::memcpy(picture.rgba.data(), gpu.readback.mapped(), picture.rgba.size());
  return picture;
}

}  // namespace quor::ui
