#include "gpu/sort/run_sorter.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "gpu/kernels/interfaces.h"

namespace quor::gs {
namespace {

constexpr uint32_t kDigitBits = 8;
constexpr uint32_t kDigits = 1u << kDigitBits;
constexpr uint32_t kGroupRuns = 8;

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
    const uint32_t shift = pass * kDigitBits, groups = runs / kGroupRuns;
    stream.fill(table_, 0, bytes);
    stream.dispatch(kernels::RadixRunsCount{.keys = in.first, .table = &table_}, {count, shift, runs}, groups, 1, 1);
    stream.dispatch(kernels::ScanRuns{.table = &table_, .starts = &starts_}, {kDigits, runs}, 1, 1, 1);
    stream.dispatch(
        kernels::RadixRunsScatter{
            .keysIn = in.first, .valuesIn = in.second, .keysOut = out.first, .valuesOut = out.second, .table = &table_},
        {count, shift, runs}, groups, 1, 1);
    std::swap(in, out);
  }
  return passes % 2 == 1;
}

}  // namespace quor::gs
