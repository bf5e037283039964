#include "gpu/sort/radix_sorter.h"

#include <algorithm>
#include <numeric>

#include "base/split_mix64.h"
#include "gpu/sort/run_sorter.h"
#include "support/gpu_fixture.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

constexpr uint32_t kUntouched = 0xDEADBEEF;

class RadixSorterTest : public GpuTest {
 protected:
  // Compares each way to sort with the standard library.
  void sortAndCompare(const std::vector<uint32_t>& keys, uint32_t keyBits) {
    sortAndCompare(RadixSorter(context), keys, keyBits, 4);
    sortAndCompare(RunSorter(context), keys, keyBits, 8);
    if (registry.runs("radix_ballot_scatter") && context.info().subgroupSize >= 8) {
      sortAndCompare(RadixSorter(context, RadixSorter::Ranks::Ballots), keys, keyBits, 8);
    }
  }

  // Sorts with a few items of room behind; values are the keys' first places.
  template <class Sorter>
  void sortAndCompare(Sorter sorter, std::vector<uint32_t> keys, uint32_t keyBits, uint32_t digitBits) {
    SCOPED_TRACE(digitBits);
    const auto count = static_cast<uint32_t>(keys.size());
    const uint32_t passes = (keyBits + digitBits - 1) / digitBits;
    const uint32_t mask = digitBits * passes == 32 ? UINT32_MAX : (1u << digitBits * passes) - 1;
    std::vector<uint32_t> values(count);
    std::iota(values.begin(), values.end(), 0u);
    std::vector<uint32_t> order = values;
    std::stable_sort(order.begin(), order.end(),
                     [&](uint32_t a, uint32_t b) { return (keys[a] & mask) < (keys[b] & mask); });
    std::vector<uint32_t> sorted(count);
    std::transform(order.begin(), order.end(), sorted.begin(), [&](uint32_t i) { return keys[i]; });

    for (std::vector<uint32_t>* padded : {&keys, &values, &order, &sorted}) padded->resize(count + 7, kUntouched);
    const GpuBuffer keysA = makeBuffer(keys), valuesA = makeBuffer(values);
    const GpuBuffer keysB = makeBuffer(std::vector<uint32_t>(count + 7, kUntouched));
    const GpuBuffer valuesB = makeBuffer(std::vector<uint32_t>(count + 7, kUntouched));
    sorter.reserve(count);
    const bool inB = sorter.sort(stream, keysA, valuesA, keysB, valuesB, count, keyBits);
    stream.submit();
    EXPECT_EQ(inB, count >= 2 && passes % 2 == 1);
    ASSERT_EQ(readBuffer<uint32_t>(inB ? keysB : keysA), sorted) << count << " keys of " << keyBits << " bits";
    ASSERT_EQ(readBuffer<uint32_t>(inB ? valuesB : valuesA), order) << count << " keys of " << keyBits << " bits";
  }

  static std::vector<uint32_t> randomKeys(uint32_t count, uint32_t mask = UINT32_MAX) {
    SplitMix64 random(count);
    std::vector<uint32_t> keys(count);
    for (uint32_t& key : keys) key = static_cast<uint32_t>(random.next()) & mask;
    return keys;
  }
};

TEST_F(RadixSorterTest, BlockBordersAndDigits) {
  for (const uint32_t count : {0u, 1u, 2u, 3u, 31u, 33u, 1023u, 1024u, 1025u, 2047u, 2049u, 4097u, 1'000'001u}) {
    sortAndCompare(randomKeys(count), 32);
    sortAndCompare(randomKeys(count, 0x3F), 6);  // many equal keys: their order must stay
  }
}

TEST_F(RadixSorterTest, KeyBitsDecideThePasses) {
  for (const uint32_t bits : {0u, 1u, 4u, 5u, 13u, 20u, 28u, 29u, 32u}) sortAndCompare(randomKeys(3000), bits);
}

TEST_F(RadixSorterTest, TheLargestKeyIsNoPadding) {
  std::vector<uint32_t> keys = randomKeys(1500);
  for (size_t i = 0; i < keys.size(); i += 3) keys[i] = UINT32_MAX;
  sortAndCompare(keys, 32);
  sortAndCompare(std::vector<uint32_t>(1025, UINT32_MAX), 32);
}

TEST_F(RadixSorterTest, BeyondTheReservedSizeIsAFault) {
  const GpuBuffer small = makeBuffer(std::vector<uint32_t>(8, 1));
  RadixSorter sorter(context);
  EXPECT_EQ(test::thrownText([&] { sorter.sort(stream, small, small, small, small, 2, 0); }),
            "RadixSorter used beyond its reserved size");
  RunSorter runs(context);
  EXPECT_EQ(test::thrownText([&] { runs.sort(stream, small, small, small, small, 2, 0); }),
            "RunSorter used beyond its reserved size");
}

}  // namespace
}  // namespace quor::gs
