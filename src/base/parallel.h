// A loop whose turns run side by side on all processors.
#pragma once

#include <cstddef>
#include <functional>

namespace quor {

// Calls work(0) .. work(count - 1), each once, on the calling thread and helpers of its own, and returns when all are
// done. When a call throws, those of higher indices that have not begun are left out, and the exception of the lowest
// index is thrown here, whatever the threads' timing.
void parallelFor(size_t count, const std::function<void(size_t)>& work);

}  // namespace quor
