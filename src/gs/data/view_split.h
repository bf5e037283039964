// Which images are trained on and which are held out to score the scene.
#pragma once

#include <cstddef>
#include <vector>

namespace quor::gs {

// Indices in dataset order.
struct ViewSplit {
  std::vector<size_t> training;
  std::vector<size_t> heldOut;
};

// Holds out every `testEvery`-th of `count` images, beginning with the first, when `evalMode` is on and testEvery > 0.
ViewSplit splitViews(size_t count, bool evalMode, int testEvery);

}  // namespace quor::gs
