#include "gpu/sort/scanner.h"

#include <numeric>

#include "support/gpu_fixture.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

using ScannerTest = GpuTest;

TEST_F(ScannerTest, AgreesWithTheStandardLibraryAtBlockBorders) {
  constexpr uint32_t kSquare = 1024 * 1024;
  Scanner scanner(context);
  scanner.reserve(2'000'000);
  for (const uint32_t count : {1u, 2u, 3u, 1023u, 1024u, 1025u, 2047u, 2049u, kSquare, kSquare + 1, 2'000'000u}) {
    std::vector<uint32_t> items(count + 5);
    for (uint32_t i = 0; i < items.size(); ++i) items[i] = i * 2654435761u >> 4;  // the sums wrap
    const GpuBuffer buffer = makeBuffer(items);
    scanner.scan(stream, buffer, count);
    stream.submit();
    std::exclusive_scan(items.begin(), items.begin() + count, items.begin(), 0u);
    ASSERT_EQ(readBuffer<uint32_t>(buffer), items) << count << " items";
  }
}

TEST_F(ScannerTest, BeyondTheReservedSizeIsAFault) {
  const GpuBuffer small = makeBuffer(std::vector<uint32_t>(8, 1));
  Scanner scanner(context);
  scanner.reserve(8);  // one level, large enough for 1536 blocks, but none above it
  EXPECT_EQ(test::thrownText([&] { scanner.scan(stream, small, 1025); }),
            "Scanner used beyond its reserved size; call reserve() before recording");
}

}  // namespace
}  // namespace quor::gs
