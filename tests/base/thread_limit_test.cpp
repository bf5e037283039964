#include "support/thread_limit.h"

#include <vector>

#include "base/parallel.h"

namespace quor {
namespace {

TEST(ThreadLimit, FewerThreadsOrNoneDoTheSameWork) {
  SKIP_WITHOUT_THREAD_LIMIT();
  for (const int granted : {0, 1}) {
    const test::ThreadLimit limit(granted);
    EXPECT_EQ(startThreads(3, [] {}).size(), static_cast<size_t>(granted));
    std::vector<std::atomic<int>> runs(100);
    parallelFor(runs.size(), [&](size_t i) { ++runs[i]; });
    for (const auto& n : runs) ASSERT_EQ(n, 1);
  }
}

}  // namespace
}  // namespace quor
