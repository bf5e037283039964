#include "ui/models/background.h"

#include <algorithm>

#include "base/crash/crash_handler.h"
#include "base/failures.h"

namespace quor::ui {

Background::~Background() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

const std::string& Background::text() const {
  static const std::string none;
  const auto found = std::ranges::find_if(texts_, [](const std::string& text) { return !text.empty(); });
  return found == texts_.end() ? none : *found;
}

void Background::add(Task task) {
  texts_.push_back(task.text);
  {
    const std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(task));
  }
  if (!thread_.joinable()) thread_ = std::thread([this] { loop(); });
  changed_.notify_all();
}

void Background::loop() {
  const ThreadCrashStack stack;
  for (;;) {
    Task task;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
      if (ending_) std::erase_if(waiting_, [](const Task& waiting) { return waiting.atTheEnd != AtTheEnd::MustRun; });
      if (waiting_.empty()) return;
      task = std::move(waiting_.front());
      waiting_.pop_front();
    }
    auto takeOver = perform(task);
    {
      const std::lock_guard lock(mutex_);
      finished_.push_back(std::move(takeOver));
    }
    changed_.notify_all();
  }
}

std::function<void()> Background::perform(Task& task) {
  try {
    return [taken = task.work(), failed = task.failed] {
      try {
        taken();
      } catch (const std::exception& error) {
        failed(failureText(error));
      }
    };
  } catch (const std::exception& error) {
    return [failed = task.failed, sentence = failureText(error)] { failed(sentence); };
  }
}

void Background::update() {
  for (;;) {
    std::function<void()> takeOver;
    {
      const std::lock_guard lock(mutex_);
      if (finished_.empty()) return;
      takeOver = std::move(finished_.front());
      finished_.pop_front();
    }
    texts_.pop_front();  // first: taking over may add another task
    takeOver();
  }
}

}  // namespace quor::ui
