#include "gpu/scanner.h"

#include <numeric>
#include <stdexcept>

#include "support/gpu_fixture.h"

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

TEST_F(ScannerTest, SeveralScansInOneRecording) {
  Scanner scanner(context);
  scanner.reserve(3000);
  const GpuBuffer a = makeBuffer(std::vector<uint32_t>(3000, 1)), b = makeBuffer(std::vector<uint32_t>(500, 2));
  scanner.scan(stream, a, 3000);
  scanner.scan(stream, b, 500);
  scanner.scan(stream, a, 0);
  stream.submit();
  EXPECT_EQ(readBuffer<uint32_t>(a)[2999], 2999u);
  EXPECT_EQ(readBuffer<uint32_t>(b)[499], 998u);
}

TEST_F(ScannerTest, BeyondTheReservedSizeIsAFault) {
  const GpuBuffer small = makeBuffer(std::vector<uint32_t>(8, 1));
  const auto scanError = [&](Scanner& scanner, uint32_t count) -> std::string {
    try {
      scanner.scan(stream, small, count);
    } catch (const std::logic_error& error) {
      return error.what();
    }
    return "";
  };
  const char* const fault = "Scanner used beyond its reserved size; call reserve() before recording";
  Scanner scanner(context);
  EXPECT_EQ(scanError(scanner, 0), "");
  EXPECT_EQ(scanError(scanner, 1), fault);
  scanner.reserve(8);  // one level, large enough for 1536 blocks, but none above it
  EXPECT_EQ(scanError(scanner, 8), "");
  EXPECT_EQ(scanError(scanner, 1025), fault);
  stream.submit();
  EXPECT_EQ(readBuffer<uint32_t>(small), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6, 7}));
}

}  // namespace
}  // namespace quor::gs
