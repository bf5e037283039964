// Waits as the window does: by updating a model until something is so.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace quor::test {

template <class Model, class Condition>
[[nodiscard]] bool pump(Model& model, Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (std::chrono::steady_clock::now() < end) {
    model.update();
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

}  // namespace quor::test
