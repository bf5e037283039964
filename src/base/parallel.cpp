#include "base/parallel.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>

#include "base/crash/crash_handler.h"

namespace quor {

size_t processorCount(size_t most) {
  return std::clamp<size_t>(std::thread::hardware_concurrency(), 1, std::max<size_t>(most, 1));
}

std::vector<std::jthread> startThreads(size_t count, const std::function<void()>& work) {
  std::vector<std::jthread> threads;
  threads.reserve(count);
  try {
    while (threads.size() < count) {
      threads.emplace_back([work] {
        const ThreadCrashStack stack;
        work();
      });
    }
  } catch (const std::system_error&) {  // the system has no more threads to give
  }
  return threads;
}

void parallelFor(size_t count, const std::function<void(size_t)>& work) {
  std::atomic<size_t> next = 0;
  std::atomic<size_t> failedAt = count;  // the lowest index that threw
  std::mutex mutex;
  std::exception_ptr failure;
  const auto loop = [&] {
    for (size_t i = next++; i < failedAt; i = next++) {
      try {
        work(i);
      } catch (...) {
        const std::lock_guard lock(mutex);
        if (i < failedAt) {
          failedAt = i;
          failure = std::current_exception();
        }
      }
    }
  };
  if (count == 0) return;
  {
    const std::vector<std::jthread> helpers = startThreads(processorCount(count) - 1, loop);
    loop();
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace quor
