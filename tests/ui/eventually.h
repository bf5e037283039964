// Models work on threads of their own and take the results over when they are updated, once a frame.
#pragma once

#include <chrono>
#include <thread>

namespace quor::test {

// Updates the model until `done` holds; false when that takes a minute.
template <typename Model, typename Condition>
bool eventually(Model& model, Condition&& done) {
  for (int i = 0; i < 60000; ++i) {
    model.update();
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

}  // namespace quor::test
