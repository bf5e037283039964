#include "gs/data/view_split.h"

namespace quor::gs {

ViewSplit splitViews(size_t count, bool evalMode, int testEvery) {
  ViewSplit split;
  for (size_t i = 0; i < count; ++i) {
    const bool heldOut = evalMode && testEvery > 0 && i % static_cast<size_t>(testEvery) == 0;
    (heldOut ? split.heldOut : split.training).push_back(i);
  }
  return split;
}

}  // namespace quor::gs
