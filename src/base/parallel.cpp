#include "base/parallel.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "base/crash/crash_handler.h"

namespace quor {

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
  {
    std::vector<std::jthread> helpers;
    const size_t threads = std::min<size_t>(count, std::max(1u, std::thread::hardware_concurrency()));
    for (size_t i = 1; i < threads; ++i) {
      helpers.emplace_back([&] {
        const ThreadCrashStack stack;
        loop();
      });
    }
    loop();
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace quor
