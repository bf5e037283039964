#include "gs/data/view_order.h"

#include <numeric>
#include <utility>

#include "base/split_mix64.h"

namespace quor::gs {

ViewOrder::ViewOrder(uint64_t seed, uint32_t views) : seed_(seed), order_(views) {
  shuffle(0);
}

uint32_t ViewOrder::at(uint64_t stepsDone) {
  const uint64_t epoch = stepsDone / order_.size();
  if (epoch != epoch_) shuffle(epoch);
  return order_[stepsDone % order_.size()];
}

// Fisher-Yates. The epoch goes through the generator's mixing function first: states that lie whole increments apart
// would give the same sequence, shifted.
void ViewOrder::shuffle(uint64_t epoch) {
  epoch_ = epoch;
  SplitMix64 random(seed_ ^ SplitMix64(epoch).next());
  std::iota(order_.begin(), order_.end(), 0u);
  for (size_t i = order_.size(); i > 1; --i) std::swap(order_[i - 1], order_[random.below(i)]);
}

}  // namespace quor::gs
