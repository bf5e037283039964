// What a device can do at best, measured: the bandwidth of a large copy, where a copied byte counts as one read and one
// written, and multiply-adds without memory accesses.
#pragma once

#include "bench_common.h"
#include "gpu/compute/compute_stream.h"
#include "kernels/interfaces.h"

namespace quor::bench {

struct Peaks {
  double bytes = 0, multiplyAdds = 0;  // a millisecond
};

inline Peaks measurePeaks(gs::VulkanContext& context, gs::KernelRegistry& registry) {
  const bool processor = context.info().deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU;
  gs::ComputeStream stream(context, registry);
  const auto best = [&](auto&& record) {
    const auto once = [&] {
      const auto start = std::chrono::steady_clock::now();
      record();
      stream.submit();
      return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    };
    once();
    return measure(once, 300, 20).least;
  };

  Peaks peaks;
  const uint64_t bytes = processor ? 64 << 20 : 512 << 20;
  const gs::GpuBuffer from(context, bytes, gs::BufferKind::Device, "bench");
  const gs::GpuBuffer to(context, bytes, gs::BufferKind::Device, "bench");
  stream.fill(from, 0);
  stream.fill(to, 0);
  stream.submit();
  peaks.bytes = 2.0 * static_cast<double>(bytes) / best([&] { stream.copy(from, to, bytes); });

  const gs::kernels::MultiplyAddPeak::Push push = {processor ? 1u << 15 : 1u << 21, 4096};
  const double work = 8.0 * push.count * push.rounds;
  peaks.multiplyAdds =
      work / best([&] { stream.dispatch1D(gs::kernels::MultiplyAddPeak{.sums = &to}, push, push.count); });
  return peaks;
}

}  // namespace quor::bench
