#include "gpu/sort/run_sorter.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace quor::gs {
namespace {

constexpr uint32_t kDigitBits = 8;
constexpr uint32_t kDigits = 1u << kDigitBits;
constexpr uint32_t kGroupRuns = 8;

// The push block of radix_runs_count and radix_runs_scatter.
struct PassPush {
  uint32_t count;
  uint32_t shift;  // of the digit, in bits
  uint32_t runs;
};
struct ScanPush {
  uint32_t rows, runs;
};
static_assert(sizeof(PassPush) == 12 && sizeof(ScanPush) == 8);

}  // namespace

void RunSorter::reserve(uint32_t count) {
  const uint64_t bytes = uint64_t{kDigits} * runsFor(count) * sizeof(uint32_t);
  if (table_ && table_.size() >= bytes) return;
  table_ = GpuBuffer();
  table_ = GpuBuffer(context_, bytes, BufferKind::Device, "digit counts");
  if (!starts_) starts_ = GpuBuffer(context_, (kDigits + 1) * sizeof(uint32_t), BufferKind::Device, "digit starts");
}

bool RunSorter::sort(ComputeStream& stream, const GpuBuffer& keysA, const GpuBuffer& valuesA, const GpuBuffer& keysB,
                     const GpuBuffer& valuesB, uint32_t count, uint32_t keyBits) {
  if (count < 2) return false;
  const uint32_t runs = runsFor(count);
  const uint64_t bytes = uint64_t{kDigits} * runs * sizeof(uint32_t);
  if (!table_ || table_.size() < bytes) throw std::logic_error("RunSorter used beyond its reserved size");
  const uint32_t passes = (std::min(keyBits, 32u) + kDigitBits - 1) / kDigitBits;
  std::pair in{&keysA, &valuesA};
  std::pair out{&keysB, &valuesB};
  for (uint32_t pass = 0; pass < passes; ++pass) {
    const PassPush push{count, pass * kDigitBits, runs};
    stream.fill(table_, 0, bytes);
    stream.dispatch("radix_runs_count", {in.first, &table_}, push, runs / kGroupRuns, 1, 1);
    stream.dispatch("scan_runs", {&table_, &starts_}, ScanPush{kDigits, runs}, 1, 1, 1);
    stream.dispatch("radix_runs_scatter", {in.first, in.second, out.first, out.second, &table_}, push,
                    runs / kGroupRuns, 1, 1);
    std::swap(in, out);
  }
  return passes % 2 == 1;
}

}  // namespace quor::gs
