// Worker threads on all processors. A system that refuses another thread costs speed and nothing else: the work is done
// by fewer threads, down to the caller's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

namespace quor {

// Threads that can run side by side, at least 1 and at most `most`.
size_t processorCount(size_t most = SIZE_MAX);

// Starts `count` threads that each call work() once, with a stack on which a crash can be reported. Returns as many as
// the system grants, possibly none; they are joined when they are destroyed.
std::vector<std::jthread> startThreads(size_t count, const std::function<void()>& work);

// Calls work(0) .. work(count - 1), each once, on the calling thread and helpers of its own, and returns when all are
// done. When a call throws, those of higher indices that have not begun are left out, and the exception of the lowest
// index is thrown here, whatever the threads' timing.
void parallelFor(size_t count, const std::function<void(size_t)>& work);

}  // namespace quor
