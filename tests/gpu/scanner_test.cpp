#include "gpu/scanner.h"

#include <numeric>
#include <stdexcept>

#include "base/split_mix64.h"
#include "support/gpu_fixture.h"

namespace quor::gs {
namespace {

using ScannerTest = GpuTest;

TEST_F(ScannerTest, AgreesWithTheStandardLibraryAtBlockBorders) {
  Scanner scanner(context);
  scanner.reserve(2'000'000);
  for (const uint32_t count :
       {1u, 2u, 3u, 1023u, 1024u, 1025u, 2047u, 2049u, 1024u * 1024u, 1024u * 1024u + 1u, 2'000'000u}) {
    std::vector<uint32_t> items(count);
    for (uint32_t i = 0; i < count; ++i) items[i] = i * 2654435761u >> 4;
    const GpuBuffer buffer = makeBuffer(items);
    scanner.scan(stream, buffer, count);
    stream.submit();
    std::exclusive_scan(items.begin(), items.end(), items.begin(), 0u);
    ASSERT_EQ(readBuffer<uint32_t>(buffer), items) << count << " items";
  }
}

}  // namespace
}  // namespace quor::gs
