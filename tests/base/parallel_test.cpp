#include "base/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

namespace quor {
namespace {

TEST(ParallelFor, RunsEveryTurnOnceAndReportsTheLowestFailure) {
  parallelFor(0, [](size_t) { FAIL(); });
  std::vector<std::atomic<int>> runs(1000);
  parallelFor(runs.size(), [&](size_t i) { ++runs[i]; });
  for (const auto& n : runs) ASSERT_EQ(n, 1);

  for (int repeat = 0; repeat < 50; ++repeat) {
    try {
      parallelFor(200, [](size_t i) {
        if (i % 7 == 3) throw std::runtime_error(std::to_string(i));
      });
      FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& e) {
      ASSERT_STREQ(e.what(), "3");
    }
  }
}

}  // namespace
}  // namespace quor
