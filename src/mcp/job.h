// One build that a client has asked for: a project taken through its stages, or a batch. It runs on the thread that
// calls run(); any other may ask for its status and stop it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/log/log_store.h"
#include "base/process/tool_finder.h"
#include "gpu/device/vulkan_context.h"
#include "gs/train/training_service.h"
#include "mcp/json_rpc.h"
#include "pipeline/batch/batch_queue.h"
#include "pipeline/pipeline.h"

namespace quor::mcp {

// What a job works with. It is opened for one job and given back at its end, so that a server that idles for days holds
// no GPU, and a GPU that was lost is opened again.
struct Equipment {
  Tools tools;
  std::unique_ptr<gs::VulkanContext> gpu;  // may be null: COLMAP matches then
  std::unique_ptr<gs::TrainingService> trainer;
};

using OpenEquipment = std::function<Equipment()>;

struct ProjectWork {
  Project project;
  Stage from = Stage::Frames;
  bool saveAtEnd = false;  // keep its settings only when they have led to a scene
};

class Job {
 public:
  // `kind` is "run", "import" or "train".
  Job(std::string id, const char* kind, ProjectWork work, Equipment equipment, LogStore& log);
  // "batch". `reopen` is called on the job's thread when the GPU was lost.
  Job(std::string id, Batch batch, Equipment equipment, LogStore& log, OpenEquipment reopen);
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  const std::string& id() const { return id_; }
  const char* kind() const { return kind_; }

  // Works until the job has ended. `tick` is called many times a second.
  void run(const std::function<void()>& tick);

  // Training ends after the current step and still writes scene and checkpoint; earlier stages are cancelled.
  void stop();
  // Ends whatever runs at once.
  void cancel();

  bool running() const;
  // Waits until the job has ended, at most `patience`; whether it has.
  bool waitFor(std::chrono::milliseconds patience) const;
  Document status() const;

  // The folders that it has begun to fill.
  std::vector<std::filesystem::path> projects() const;

  struct Result {
    bool success = false;
    std::string text;  // the result document, or the sentence of the failure
  };
  Result result() const;

 private:
  enum class State { Running, Finished, Failed };
  using Clock = std::chrono::steady_clock;

  void runProject(const std::function<void()>& tick);
  void runBatch();
  BatchQueue::Equipment reopen();
  void giveBack();
  void end(State state, std::string detail, std::string result);
  void addProgress(Document& document) const;
  void addBatch(Document& document) const;
  std::string batchResult(const Batch& batch) const;

  const std::string id_;
  const char* const kind_;
  LogStore& log_;
  const ProjectWork work_;
  const OpenEquipment reopen_;

  mutable std::mutex mutex_;  // guards what follows
  mutable std::condition_variable ended_;
  std::unique_ptr<BatchQueue> queue_;
  Equipment equipment_;
  std::unique_ptr<Pipeline> pipeline_;  // null once the job has ended, and while a lost GPU is opened again
  State state_ = State::Running;
  bool stopped_ = false;
  std::string detail_ = "Starting";
  std::string result_;
  const Clock::time_point start_ = Clock::now();
  Clock::time_point end_;
  std::function<void()> tick_;
};

}  // namespace quor::mcp
