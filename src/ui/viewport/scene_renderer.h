// Draws what the viewport shows, on a thread of its own: a scene from a file or the splats of the running training, and
// the sparse points. Its work goes to the queue that training uses, one short piece after the other; pictures come back
// through host memory, so that the window and this thread share no GPU objects. When GPU memory runs out it frees all
// it holds, draws smaller pictures, and tries again from time to time: training comes first.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/log/log_store.h"
#include "gs/render/camera.h"
#include "gs/splats/gaussian_set.h"
#include "gs/splats/live_scene.h"
#include "ui/models/view/render_pacer.h"

namespace quor::ui {

enum class Shown { Splats, Points, Both };

// A picture to draw; equal requests are drawn once.
struct RenderRequest {
  gs::Camera camera;  // of the picture's size
  Shown shown = Shown::Splats;
  int shDegree = 3;
  float splatScale = 1;
  std::array<float, 3> background = {0, 0, 0};
  float nearPlane = 0.01f;
  bool live = false;    // the splats of the running training, as they change
  bool moving = false;  // soon to be replaced: may be smaller

  friend bool operator==(const RenderRequest&, const RenderRequest&) = default;
};

struct RenderedPicture {
  std::vector<uint8_t> rgba;  // four bytes a pixel, rows from the top
  int width = 0;
  int height = 0;
  gs::Camera camera;    // as asked for, whatever the picture's size
  uint64_t splats = 0;  // drawn
  double milliseconds = 0;
  bool reduced = false;  // smaller than wanted, because GPU memory is short
};

class SceneRenderer {
 public:
  // All outlive this object.
  SceneRenderer(gs::VulkanContext& context, gs::KernelRegistry& registry, gs::LiveScene& live, LogStore& log);
  ~SceneRenderer();
  SceneRenderer(const SceneRenderer&) = delete;
  SceneRenderer& operator=(const SceneRenderer&) = delete;

  // From any thread; null to show nothing. A picture that is being drawn still shows the one before.
  void setScene(std::shared_ptr<const gs::GaussianSet> scene);
  void setPoints(std::shared_ptr<const gs::GaussianSet> points);

  // The newest request is drawn; those that it overtakes are not. std::nullopt stops the drawing and frees its GPU
  // memory.
  void request(const std::optional<RenderRequest>& request);

  // The last picture, once.
  std::optional<RenderedPicture> take();
  // True once a picture for the last request has been taken and nothing newer is to come of it.
  bool upToDate() const;
  // Why nothing is drawn at the moment, a sentence; empty while all is well.
  std::string failure() const;

 private:
  struct Gpu;
  using Clock = std::chrono::steady_clock;

  void run();
  bool waitForWork(std::unique_ptr<Gpu>& gpu, std::unique_lock<std::mutex>& lock);
  void upload(Gpu& gpu, std::shared_ptr<const gs::GaussianSet> scene, std::shared_ptr<const gs::GaussianSet> points);
  bool recover(const std::exception& error);
  void draw(Gpu& gpu, const RenderRequest& request);
  RenderedPicture drawSplats(Gpu& gpu, const gs::SplatStore& splats, int shDegree, const RenderRequest& request);

  gs::VulkanContext& context_;
  gs::KernelRegistry& registry_;
  gs::LiveScene& live_;
  LogStore& log_;

  mutable std::mutex mutex_;  // guards everything below but the thread
  std::condition_variable wake_;
  std::optional<RenderRequest> request_;
  bool requestIsNew_ = false;
  std::shared_ptr<const gs::GaussianSet> scene_, points_;
  std::optional<RenderedPicture> picture_;
  bool drawing_ = false;
  std::string failure_;
  double edgeLimit_ = 1;       // share of each edge that GPU memory has room for
  Clock::time_point enlarge_;  // when a larger picture may be tried again
  Clock::time_point resume_;   // nothing is drawn before: the training has its share, or a failure is left some time
  RenderPacer pacer_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace quor::ui
