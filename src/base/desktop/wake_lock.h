// Keeps the computer from going to sleep by itself while an object lives; the screen may still go dark. Without a
// service to ask for it this does nothing: work that takes hours must not fail for that.
#pragma once

#include <memory>
#include <string>

namespace quor {

class WakeLock {
 public:
  // `reason` is shown to users who ask their system why it stays awake. Does not wait and never throws. On Windows the
  // lock is the calling thread's, which must also destroy it.
  explicit WakeLock(const std::string& reason);
  ~WakeLock();
  WakeLock(const WakeLock&) = delete;
  WakeLock& operator=(const WakeLock&) = delete;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quor
