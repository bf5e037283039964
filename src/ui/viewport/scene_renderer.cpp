#include "ui/viewport/scene_renderer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <utility>

#include "base/crash/crash_handler.h"
#include "base/failures.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/memory/transfer.h"
#include "gs/render/kernels/interfaces.h"
#include "gs/render/renderer.h"

namespace quor::ui {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

// How often to look for a new copy of the training's splats.
constexpr auto kLivePoll = std::chrono::milliseconds(15);
// How long a failure is left before the next attempt.
constexpr auto kRetryAfter = std::chrono::seconds(5);
constexpr double kMinEdgeLimit = 1.0 / 16;

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
        renderer(context, registry, gs::Renderer::Mode::RenderOnly) {
    std::vector<std::string> kernels = renderer.kernelNames();
    for (const char* name : {"rgb_to_rgba8", "activate_scaled"}) kernels.emplace_back(name);
    registry.prepare(kernels);
  }

  gs::ComputeStream stream;
  gs::Transfer transfer;
  std::shared_ptr<const gs::GaussianSet> sceneSource, pointsSource;  // that the stores hold
  gs::SplatStore scene, points, both;
  int sceneDegree = 3;
  gs::Renderer renderer;
  gs::GpuBuffer packed, readback;
  uint64_t liveVersion = 0;  // of the last picture
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
    requestIsNew_ = true;
    resume_ = {};
  }
  wake_.notify_all();
}

void SceneRenderer::setPoints(std::shared_ptr<const gs::GaussianSet> points) {
  {
    const std::lock_guard lock(mutex_);
    points_ = std::move(points);
    requestIsNew_ = true;
    resume_ = {};
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
  if (!failure_.empty()) return true;
  return !requestIsNew_ && !drawing_ && !picture_ && !(request_ && request_->live);
}

std::string SceneRenderer::failure() const {
  const std::lock_guard lock(mutex_);
  return failure_;
}

void SceneRenderer::run() {
  std::unique_ptr<Gpu> gpu;
  try {
    gpu = std::make_unique<Gpu>(context_, registry_);  // kernels are ready before the first scene is
  } catch (const std::exception& error) {
    if (!recover(error)) return;
  }
  std::unique_lock lock(mutex_);
  while (waitForWork(gpu, lock)) {
    const RenderRequest request = *request_;
    requestIsNew_ = false;
    drawing_ = true;
    const auto scene = scene_, points = points_;
    lock.unlock();
    try {
      if (!gpu) gpu = std::make_unique<Gpu>(context_, registry_);
      upload(*gpu, scene, points);
      draw(*gpu, request);
    } catch (const std::exception& error) {
      gpu.reset();
      live_.clear();
      if (!recover(error)) return;
    }
    lock.lock();
    drawing_ = false;
  }
}

// False when there is no hope.
bool SceneRenderer::recover(const std::exception& error) {
  const Outcome outcome = outcomeOf(error);
  const std::lock_guard lock(mutex_);
  drawing_ = false;
  requestIsNew_ = true;
  if (outcome == Outcome::OutOfGpuMemory && edgeLimit_ > kMinEdgeLimit) {
    if (edgeLimit_ == 1) log_.warning("GPU memory is short: the view is drawn smaller. " + failureText(error));
    edgeLimit_ /= 2;
    enlarge_ = Clock::now() + kRetryAfter;
    return true;
  }
  std::string text = "The view cannot be drawn";
  if (outcome == Outcome::OutOfGpuMemory) {
    text +=
        ": GPU memory is used up. It is tried again every few seconds; closing other programs that use the GPU helps.";
  } else if (outcome == Outcome::DeviceLost) {
    text += " any more: " + failureText(error) + ". Start Ombrelux again.";
  } else {
    text += ": " + failureText(error);
  }
  if (text != failure_) log_.error(text);
  failure_ = text;
  resume_ = Clock::now() + kRetryAfter;
  return outcome != Outcome::DeviceLost;
}

// Holds the lock when it returns; false when this object goes away.
bool SceneRenderer::waitForWork(std::unique_ptr<Gpu>& gpu, std::unique_lock<std::mutex>& lock) {
  for (;;) {
    if (ending_) return false;
    if (!request_) {
      if (gpu && (gpu->sceneSource || gpu->pointsSource || gpu->liveVersion > 0)) {
        lock.unlock();
        gpu.reset();
        live_.clear();
        lock.lock();
        continue;
      }
      wake_.wait(lock);
      continue;
    }
    const auto now = Clock::now();
    if (now >= resume_) {
      if (requestIsNew_) return true;
      if (request_->live) {
        live_.want();
        lock.unlock();
        const bool fresh = !gpu || live_.read().version() != gpu->liveVersion;
        lock.lock();
        if (fresh && request_) return true;
      }
    }
    if (request_ && !request_->live && !requestIsNew_) {
      wake_.wait(lock);
    } else {
      wake_.wait_for(lock, std::clamp<Milliseconds>(resume_ - now, Milliseconds(1), kLivePoll));
    }
  }
}

void SceneRenderer::upload(Gpu& gpu, std::shared_ptr<const gs::GaussianSet> scene,
                           std::shared_ptr<const gs::GaussianSet> points) {
  const auto put = [&](std::shared_ptr<const gs::GaussianSet>& held, gs::SplatStore& store,
                       std::shared_ptr<const gs::GaussianSet> wanted) {
    if (held == wanted) return;
    held.reset();
    store = gs::SplatStore(context_, gs::SplatStore::Use::RenderOnly);  // frees the old one before there is a new one
    if (wanted) store.upload(gpu.transfer, *wanted);
    held = std::move(wanted);
  };
  put(gpu.sceneSource, gpu.scene, std::move(scene));
  gpu.sceneDegree = gpu.sceneSource ? gpu.sceneSource->shDegree : 0;
  put(gpu.pointsSource, gpu.points, std::move(points));
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
  if (request.shown != Shown::Both) gpu.both = gs::SplatStore(context_, gs::SplatStore::Use::RenderOnly);
  if (request.live) {
    const gs::LiveScene::Reading reading = live_.read();
    gpu.liveVersion = reading.version();
    // Before the first step there are only the points.
    picture = reading.version() > 0 ? drawFrom(reading.splats(), reading.shDegree())
                                    : drawSplats(gpu, gpu.points, 0, request);
  } else {
    if (std::exchange(gpu.liveVersion, 0) > 0) live_.clear();  // the training is over: free its copy
    picture = drawFrom(gpu.scene, gpu.sceneDegree);
  }
  picture->milliseconds = Milliseconds(Clock::now() - start).count();
  const std::lock_guard lock(mutex_);
  pacer_.drawn(static_cast<double>(picture->width) * picture->height, picture->milliseconds);
  const Milliseconds pause(request.live ? pacer_.pause(request.moving) : 0);
  resume_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(pause);
  failure_.clear();
  picture->reduced = edgeLimit_ < 1;
  if (edgeLimit_ < 1 && Clock::now() >= enlarge_) edgeLimit_ = std::min(1.0, 2 * edgeLimit_);
  picture_ = std::move(picture);
}

RenderedPicture SceneRenderer::drawSplats(Gpu& gpu, const gs::SplatStore& splats, int shDegree,
                                          const RenderRequest& request) {
  double edges = 1;
  {
    const std::lock_guard lock(mutex_);
    edges = std::min(pacer_.edgeScale(pixelsOf(request.camera), request.moving), edgeLimit_);
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
