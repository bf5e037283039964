// The optimiser's kernels against the same step in double precision, at counts about the groups' and the quads'
// borders.
#include <cmath>

#include "base/split_mix64.h"
#include "gs/train/kernels/interfaces.h"
#include "support/gpu_fixture.h"

namespace quor::gs {
namespace {

TEST_F(GpuTest, BothWaysToStepAdamAgreeWithTheFormula) {
  for (const uint32_t count : {1u, 3u, 4u, 5u, 255u, 1023u, 1026u, 3001u}) {
    SCOPED_TRACE(count);
    SplitMix64 random(count);
    std::array<std::vector<float>, 4> arrays;  // value, m, v, gradient, in whole quads
    for (size_t k = 0; k < 4; ++k) {
      for (uint32_t i = 0; i < (count + 3) / 4 * 4; ++i) {
        const double x = random.normal();
        arrays[k].push_back(static_cast<float>(k == 2 ? x * x : x));
      }
    }
    const kernels::Adam::Push push = {count, 0.01f, 0.9f, 0.999f, 1e-15f, 0.5f, 0.25f};
    for (const auto& [kernel, each] : {std::pair{"adam", 1u}, {"adam_quads", 4u}}) {
      SCOPED_TRACE(kernel);
      const GpuBuffer value = makeBuffer(arrays[0]), m = makeBuffer(arrays[1]), v = makeBuffer(arrays[2]),
                      gradient = makeBuffer(arrays[3]);
      stream.dispatch1D(kernels::Adam{&value, &m, &v, &gradient}, push, (count + each - 1) / each, kernel);
      stream.submit();
      const auto newValue = readBuffer<float>(value), newM = readBuffer<float>(m), newV = readBuffer<float>(v);
      for (uint32_t i = 0; i < count; ++i) {
        const double g = static_cast<double>(arrays[3][i]);
        const double first = 0.9 * static_cast<double>(arrays[1][i]) + 0.1 * g;
        const double second = 0.999 * static_cast<double>(arrays[2][i]) + 0.001 * g * g;
        const double expected =
            static_cast<double>(arrays[0][i]) - 0.01 * (first / 0.5) / (std::sqrt(second) / 0.25 + 1e-15);
        ASSERT_NEAR(newM[i], first, 1e-5 + 1e-5 * std::abs(first)) << i;
        ASSERT_NEAR(newV[i], second, 1e-5 + 1e-5 * second) << i;
        ASSERT_NEAR(newValue[i], expected, 1e-5 + 1e-4 * std::abs(expected - static_cast<double>(arrays[0][i]))) << i;
      }
    }
  }
}

}  // namespace
}  // namespace quor::gs
