// For what another thread or process does: no test waits for ever, and none fails because the machine is busy.
#pragma once

#include <chrono>
#include <thread>

namespace quor::test {

// Whether the condition came true; asked every few milliseconds, given up after ten minutes.
template <class Condition>
bool waitUntil(Condition&& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace quor::test
