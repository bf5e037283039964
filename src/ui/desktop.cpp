#include "ui/desktop.h"

#include <imgui.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "base/crash/crash_handler.h"
#include "base/desktop/desktop_notification.h"
#include "base/desktop/message_box.h"
#include "base/desktop/open_folder.h"
#include "base/desktop/wake_lock.h"
#include "base/failures.h"
#include "base/files/paths.h"
#include "base/log/log_store.h"
#include "base/process/terminal.h"
#include "base/process/tool_finder.h"
#include "base/text/text.h"
#include "base/version.h"
#include "gpu/device/vulkan_context.h"
#include "gs/splats/live_scene.h"
#include "gs/train/engine.h"
#include "pipeline/intake.h"
#include "pipeline/pipeline.h"
#include "project/preferences.h"
#include "ui/interface.h"
#include "ui/main_window.h"
#include "ui/viewport/scene_renderer.h"
#include "ui/vulkan/file_pictures.h"
#include "ui/vulkan/interface_drawer.h"
#include "ui/vulkan/presenter.h"
#include "ui/vulkan/textures.h"
#include "ui/window.h"
#include "ui/window_device.h"

namespace quor::ui {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kLogCapacity = 5000;
constexpr double kFrameSeconds = 1.0 / 60;
constexpr double kIdleSeconds = 0.2;  // between frames when nothing happens: a cursor still blinks
// Frames that are drawn after an event even if nothing else happens: layouts take a frame to settle.
constexpr int kFramesAfterEvent = 4;
constexpr size_t kFrameTimes = 20000;
constexpr const char* kAfterLostDevice =
    "Start Ombrelux again; training goes on from its last checkpoint. If this happens repeatedly, lower the resolution "
    "and close other programs that use the GPU.";

// Owns everything behind the window, in the order of construction.
class Desktop {
 public:
  explicit Desktop(LogStore& log);
  ~Desktop();
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;

  void open(const std::vector<std::string>& paths);
  int run();

 private:
  Workspace::Parts workspaceParts();
  BatchForm::Parts batchParts();
  MainWindow::Parts windowParts();
  std::unique_ptr<Pipeline> makePipeline();
  void update();
  void passOnDropped();
  void followTraining();
  void followWork();
  void draw();
  void logFrameTimes();
  bool lively() const;

  LogStore& log_;
  Preferences preferences_;
  WindowState state_;
  Window window_;
  std::unique_ptr<gs::VulkanContext> context_;
  Presenter presenter_;
  Textures textures_;
  InterfaceDrawer drawer_;
  Interface interface_;
  FilePictures pictures_;
  About about_;

  gs::LiveScene live_;
  gs::Engine engine_;
  SceneRenderer renderer_;
  PreferencesForm preferencesForm_;
  FileDialog dialogs_;
  Workspace workspace_;
  std::unique_ptr<BatchForm> batch_;
  Viewport viewport_;
  ViewportPanel viewportPanel_;
  LogView logView_;
  TrainingHistory history_;
  MainWindow main_;
  Background notifier_;
  std::optional<WakeLock> awake_;  // while something runs
  bool batchRan_ = false;
  int interrupts_ = 0;
  std::string colmapPath_ = preferences_.colmapPath;  // that the workspace knows
  std::vector<float> frameTimes_;                     // milliseconds of the interface's own work
};

Desktop::Desktop(LogStore& log)
    : log_(log),
      preferences_(Preferences::load()),
      state_(WindowState::load()),
      window_("Ombrelux", state_),
      context_(openContext(preferences_, log)),
      presenter_(*context_, [this](VkInstance instance) { return window_.makeSurface(instance); }),
      textures_(*context_),
      drawer_(*context_, textures_, presenter_.pass()),
      interface_(window_, textures_),
      pictures_(textures_),
      about_(About::of(gs::describe(context_->info()), context_->info().name, context_->sharedQueue())),
      live_(*context_),
      engine_(*context_, log, &live_),
      renderer_(*context_, engine_.registry(), live_, log),
      preferencesForm_({preferences_, deviceLines}),
      dialogs_(fromUtf8(preferences_.lastDirectory)),
      workspace_(workspaceParts()),
      batch_(std::make_unique<BatchForm>(batchParts())),
      viewport_(renderer_, log),
      viewportPanel_(viewport_, renderer_, textures_),
      logView_(log, kLogCapacity),
      main_(windowParts(), state_) {
  log.info("Building the GPU kernels");  // the renderer's thread does
}

Desktop::~Desktop() {
  presenter_.waitIdle();
  window_.remember(state_);
  state_.panels = main_.openPanels();
  try {
    state_.save();
  } catch (const std::exception& error) {
    log_.warning(error.what());
  }
}

std::unique_ptr<Pipeline> Desktop::makePipeline() {
  const Tools tools{findColmap(preferences_.colmapPath), findFfmpeg(preferences_.ffmpegPath)};
  return std::make_unique<Pipeline>(engine_, log_, tools, context_.get());
}

Workspace::Parts Desktop::workspaceParts() {
  return {log_,
          engine_,
          preferences_,
          [this] { return makePipeline(); },
          [this] { return batch_ && batch_->running(); },
          {},  // PreferencesForm saves every change
          [](const std::filesystem::path& folder) { return openFolder(folder); }};
}

BatchForm::Parts Desktop::batchParts() {
  return {log_,
          engine_,
          [this] { return makePipeline(); },
          [this] { return workspace_.busy(); },
          [this](const std::filesystem::path& project) { workspace_.open({project}); },
          {}};
}

MainWindow::Parts Desktop::windowParts() {
  return {workspace_, viewport_, viewportPanel_, *batch_, preferencesForm_, logView_, history_, dialogs_, about_};
}

void Desktop::open(const std::vector<std::string>& paths) {
  std::vector<std::filesystem::path> opened(paths.size());
  std::transform(paths.begin(), paths.end(), opened.begin(), absolutePath);
  if (!opened.empty()) workspace_.open(std::move(opened));
}

void Desktop::passOnDropped() {
  std::vector<std::filesystem::path> dropped = window_.takeDropped();
  if (dropped.empty()) return;
  if (workspace_.newMedia().visible) {
    workspace_.newMedia().add(std::move(dropped));
  } else {
    workspace_.open(std::move(dropped));
  }
}

void Desktop::followTraining() {
  const gs::TrainStatus training = engine_.status();
  history_.add(training);
  // A batch trains other scenes than the one that is open.
  const bool wanted = preferences_.visualizer && workspace_.busy() && workspace_.project() &&
                      workspace_.project()->training.visualizerEnabled;
  const bool trains = engine_.running() &&
                      (training.state == gs::TrainState::Training || training.state == gs::TrainState::Evaluating ||
                       training.state == gs::TrainState::Exporting);
  viewport_.setLive(trains && wanted);
  viewport_.setSource(workspace_.view());
}

// A build takes long enough for the user, and the computer, to turn to other things.
void Desktop::followWork() {
  const bool working = workspace_.busy() || batch_->running();
  if (working && !awake_) awake_.emplace("A scene is being built");
  if (!working) awake_.reset();
  if (std::exchange(batchRan_, batch_->running()) && !batch_->running()) {
    workspace_.notify({"The batch has ended", {batch_->summary()}});
  }
  const std::optional<Notice> news = workspace_.takeNews();
  if (!news || window_.focused()) return;
  window_.requestAttention();
  notifier_.run(
      {},
      [title = news->title, text = news->lines.empty() ? std::string() : news->lines.front()] {
        return showDesktopNotification(title, text);
      },
      [](bool) {}, [](const std::string&) {});
}

void Desktop::update() {
  passOnDropped();
  for (const Shortcut& shortcut : window_.takeShortcuts()) main_.press(shortcut);
  if (window_.takeCloseWish()) main_.closing().ask();
  if (interruptCount() > std::exchange(interrupts_, interruptCount())) main_.closing().interrupt();
  dialogs_.update();
  preferences_.lastDirectory = toUtf8(dialogs_.folder());
  preferencesForm_.update();
  if (preferences_.colmapPath != std::exchange(colmapPath_, preferences_.colmapPath)) workspace_.run().findTools();
  workspace_.update();
  batch_->update();
  followTraining();
  followWork();
  notifier_.update();
  viewport_.update();
  pictures_.update();
  logView_.update();
  window_.setTitle(main_.title());
}

void Desktop::draw() {
  interface_.setScale(window_.contentScale() * preferences_.uiScale);
  interface_.beginFrame();
  main_.draw({pictures_, dialogs_, [this](const std::filesystem::path& folder) { workspace_.openFolder(folder); }});
  ImGui::Render();
  int width = 0, height = 0;
  window_.framebufferSize(width, height);
  presenter_.frame(
      width, height, [&](VkCommandBuffer commands) { textures_.recordUploads(commands); },
      [&](VkCommandBuffer commands) { drawer_.record(commands, *ImGui::GetDrawData()); });
}

// Whether the picture changes by itself.
bool Desktop::lively() const {
  return workspace_.busy() || batch_->running() || workspace_.loading() || viewport_.loading() ||
         !renderer_.upToDate() || dialogs_.open() || ImGui::IsAnyMouseDown();
}

// For reports of a window that is slow.
void Desktop::logFrameTimes() {
  if (frameTimes_.empty()) return;
  std::sort(frameTimes_.begin(), frameTimes_.end());
  const auto share = [&](size_t percent) {
    return static_cast<double>(frameTimes_[(frameTimes_.size() - 1) * percent / 100]);
  };
  log_.info(
      formatText("The interface took %.1f ms a frame in the middle of %zu, %.1f ms for 99 of 100, at most %.1f ms.",
                 share(50), frameTimes_.size(), share(99), share(100)));
}

int Desktop::run() {
  int frames = kFramesAfterEvent;
  auto lastFrame = Clock::now();
  while (!main_.closing().closed()) {
    const double since = std::chrono::duration<double>(Clock::now() - lastFrame).count();
    const double wait = frames > 0 || lively() ? std::max(kFrameSeconds - since, 0.0) : kIdleSeconds;
    if (window_.waitEvents(wait) && wait > kFrameSeconds) frames = kFramesAfterEvent;
    // The last frame may still wait for the GPU, behind the training's work: the events do not.
    if (!presenter_.idle()) {
      window_.waitEvents(0.002);
      continue;
    }
    if (window_.minimised()) {
      update();
      window_.waitEvents(kIdleSeconds);
      continue;
    }
    lastFrame = Clock::now();
    update();
    draw();
    frames = std::max(frames - 1, 0);
    const std::chrono::duration<float, std::milli> taken = Clock::now() - lastFrame;
    if (frameTimes_.size() < kFrameTimes) frameTimes_.push_back(taken.count());
  }
  logFrameTimes();
  return 0;
}

}  // namespace

int runDesktop(const std::vector<std::string>& paths) {
  LogStore log(kLogCapacity);
  log.openFile(applicationLogFile());
  log.mirrorTo(crashLogTail());
  log.setEcho(true, LogLevel::Warning);
  log.info(std::string("Ombrelux ") + kVersion + " starting");
  try {
    Desktop desktop(log);
    desktop.open(paths);
    return desktop.run();
  } catch (const std::exception& error) {
    std::string text = failureText(error);
    if (outcomeOf(error) == Outcome::DeviceLost) text += ". " + std::string(kAfterLostDevice);
    log.setEcho(false);  // the caller says it
    log.error(text);
    // Whoever started the program with the mouse sees neither standard error nor the log.
    const int interrupts = interruptCount();
    if (!standardErrorIsTerminal()) {
      showMessageBox("Ombrelux", text, [interrupts] { return interruptCount() > interrupts; });
    }
    throwAs(outcomeOf(error), text);
  }
}

}  // namespace quor::ui
