// Which training view each step takes: every epoch shows all views once, in an order of its own. The order follows from
// the seed and the epoch alone, so that a resumed run goes on in the middle of an epoch where the earlier one stopped.
#pragma once

#include <cstdint>
#include <vector>

namespace quor::gs {

class ViewOrder {
 public:
  // `views` > 0.
  ViewOrder(uint64_t seed, uint32_t views);

  // The view of the step before which `stepsDone` steps have been done.
  uint32_t at(uint64_t stepsDone);

 private:
  void shuffle(uint64_t epoch);

  uint64_t seed_;
  uint64_t epoch_ = 0;
  std::vector<uint32_t> order_;
};

}  // namespace quor::gs
