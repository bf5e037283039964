// Waits as the window does: by updating a model until something is so.
#pragma once

#include "support/wait_until.h"

namespace quor::test {

template <class Model, class Condition>
[[nodiscard]] bool pump(Model& model, Condition condition) {
  return waitUntil([&] {
    model.update();
    return condition();
  });
}

}  // namespace quor::test
