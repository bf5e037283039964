// Times one training step, stage by stage, on the chosen device (QUOR_DEVICE) at several scene sizes.
//
//   bench_step [SPLATS WIDTH HEIGHT DEGREE [plain]]
//
// "plain" takes the fixed kernels instead of the device's fastest. Stage times are the GPU's own timestamps; the step's
// is the host's clock around whole steps without profiling.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench_common.h"
#include "gpu/compute_stream.h"
#include "gpu/transfer.h"
#include "gpu/vulkan_context.h"
#include "gs/renderer.h"

namespace {

using namespace quor::gs;

struct Case {
  uint64_t splats;
  int width, height, degree;
  double instancesPerSplat;
};

struct AdamPush {
  uint32_t count;
  float rate, beta1, beta2, epsilon, correction1, rootCorrection2;
};

class StepBench {
 public:
  StepBench(VulkanContext& context, KernelRegistry& registry, const Case& c, bool plain)
      : case_(c),
        camera_(quor::bench::benchCamera(c.width, c.height)),
        stream_(context, registry),
        transfer_(context),
        splats_(context, SplatStore::Use::Training),
        renderer_(context,
                  plain ? Renderer::Variants{"rasterize_forward", registry.backwardKernelName(), false}
                        : Renderer::Variants::forDevice(context, registry),
                  Renderer::Mode::Training) {
    splats_.upload(transfer_, quor::bench::benchScene(c.splats, c.width, c.instancesPerSplat));
    renderer_.reserve(splats_.count(), c.width, c.height);
    const size_t bytes = static_cast<size_t>(c.width) * static_cast<size_t>(c.height) * 3;
    photo_ = GpuBuffer(context, (bytes + 3) / 4 * 4, BufferKind::Device, "photograph");
    transfer_.fill(photo_, 0x80604020u, 0, photo_.size());
  }

  void step() {
    renderer_.project(stream_, splats_, camera_, case_.degree, 0.05f);
    renderer_.rasterize(stream_, {0, 0, 0});
    renderer_.lossAndBackward(stream_, splats_, photo_, lossScales(0.2f, case_.width, case_.height), {}, false);
    stream_.mark("optimiser");
    for (size_t i = 0; i < kGroupCount; ++i) {
      const Group g = static_cast<Group>(i);
      if (g == kShRest && case_.degree == 0) continue;
      const uint32_t count = splats_.count() * static_cast<uint32_t>(kGroupWidths[g]);
      // A rate of zero: the work of a step, and the scene stays as it is.
      stream_.dispatch1D("adam",
                         {&splats_.value(g), &splats_.firstMoment(g), &splats_.secondMoment(g), &splats_.gradient(g)},
                         AdamPush{count, 0.0f, 0.9f, 0.999f, 1e-15f, 0.5f, 0.5f}, count);
    }
    stream_.submit();
  }

  void run() {
    step();
    step();
    std::vector<double> times;
    for (double total = 0; times.size() < 5 || (total < 2000 && times.size() < 50); total += times.back()) {
      const auto start = std::chrono::steady_clock::now();
      step();
      times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    std::printf("%llu splats, %dx%d, degree %d: %u instances\n", static_cast<unsigned long long>(case_.splats),
                case_.width, case_.height, case_.degree, renderer_.instances());
    std::printf("  step %.2f ms (median of %zu; least %.2f)\n", times[times.size() / 2], times.size(), times.front());

    constexpr int kProfiled = 5;
    stream_.setProfiling(true);
    for (int i = 0; i < kProfiled; ++i) step();
    for (const StageTime& stage : stream_.takeProfile()) {
      std::printf("    %-20s %9.3f ms\n", stage.stage, stage.milliseconds / kProfiled);
    }
    stream_.setProfiling(false);
  }

 private:
  Case case_;
  Camera camera_;
  ComputeStream stream_;
  Transfer transfer_;
  SplatStore splats_;
  Renderer renderer_;
  GpuBuffer photo_;
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<Case> cases = {{7000, 315, 177, 0, 5}, {7000, 320, 180, 3, 5}, {50000, 640, 360, 3, 5}};
  const bool plain = argc > 1 && std::strcmp(argv[argc - 1], "plain") == 0;
  if (argc >= 5)
    cases = {{std::strtoull(argv[1], nullptr, 10), std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4]), 5}};
  VulkanContext context({});
  KernelRegistry registry(context);
  std::printf("%s\n", describe(context.info()).c_str());
  if (context.info().deviceType != VK_PHYSICAL_DEVICE_TYPE_CPU && argc < 5)
    cases.push_back({1000000, 1600, 1063, 3, 5});
  for (const Case& c : cases) StepBench(context, registry, c, plain).run();
}
