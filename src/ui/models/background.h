// Work that would hold up the interface: tasks run one after the other on a thread of their own, and the result
// of each is taken over by update() on the interface's thread, in that order. So a model's members belong to one
// thread, and a task must hold copies of all that it uses.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace quor::ui {

class Background {
 public:
  using Failed = std::function<void(const std::string& sentence)>;

  Background() = default;
  // Waits for the task that runs, and for those that must run; the others are dropped. Nothing is taken over.
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  enum class AtTheEnd { MayDrop, MustRun };

  // `done` gets what `work` returned; `failed` the sentence when either threw. `text` tells the user what is going on;
  // empty when there is nothing to wait for.
  template <class Work, class Done>
  void run(std::string text, Work work, Done done, Failed failed, AtTheEnd atTheEnd = AtTheEnd::MayDrop) {
    add({std::move(text),
         [work = std::move(work), done = std::move(done)]() mutable -> std::function<void()> {
           auto result = std::make_shared<decltype(work())>(work());
           return [result, done = std::move(done)]() mutable { done(std::move(*result)); };
         },
         std::move(failed), atTheEnd});
  }

  // Once a frame.
  void update();
  // Whether there is something that has not been taken over yet.
  bool busy() const { return !texts_.empty(); }
  // Of the first task that has one; empty when there is none.
  const std::string& text() const;

 private:
  struct Task {
    std::string text;
    std::function<std::function<void()>()> work;
    Failed failed;
    AtTheEnd atTheEnd = AtTheEnd::MayDrop;
  };

  void add(Task task);
  void loop();
  static std::function<void()> perform(Task& task);

  std::deque<std::string> texts_;  // of tasks not taken over yet; the interface's own
  std::mutex mutex_;               // guards all up to thread_
  std::condition_variable changed_;
  std::deque<Task> waiting_;
  std::deque<std::function<void()>> finished_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace quor::ui
