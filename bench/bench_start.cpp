// Where the time goes from the start of a program to its first training step, and what views cost in memory.
//
//   bench_start DATASET [RESOLUTION [MEGABYTES]]
//
// MEGABYTES of photographs may stay in memory (by itself, half of what is free); the others go to a temporary file. Run
// it twice: the second time the driver's own cache of kernels is warm. Nothing is written.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "base/files/paths.h"
#include "gpu/compute/kernel_registry.h"
#include "gpu/device/vulkan_context.h"
#include "gs/data/dataset.h"
#include "gs/render/blend_trial.h"
#include "gs/splat_kernels.h"
#include "gs/train/schedule.h"
#include "gs/train/trainer.h"
#include "kernels.h"

namespace {

using namespace quor::gs;

class Stopwatch {
 public:
  void say(const char* what) {
    const auto now = std::chrono::steady_clock::now();
    std::printf("  %-46s %8.3f s\n", what, std::chrono::duration<double>(now - last_).count());
    last_ = std::chrono::steady_clock::now();
  }
  double total() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count(); }

 private:
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point last_ = begin_;
};

// Largest so far; Linux counts in KB.
double residentMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

void run(const char* folder, int resolution, uint64_t budget) {
  Stopwatch clock;
  applyLayerPolicy();
  VulkanContext context({});
  clock.say("loader, driver and device");
  KernelRegistry registry(context, {splatKernels(), benchKernels()});
  quor::LogStore log(100);
  const std::atomic<bool> cancel = false;
  const double before = residentMegabytes();
  const Dataset dataset = loadDataset({quor::fromUtf8(folder), resolution, true, 8, {}, {}, {{}, budget}}, log, cancel);
  clock.say("model read, photographs decoded and scaled");
  const double loaded = residentMegabytes();
  TrainJob job;
  job.technique = Technique::Mcmc;
  job.iterations = 1000;
  job = resolved(job);
  Trainer trainer(context, registry, log, job, dataset, variantsByTrial(context, registry, log));
  clock.say("kernels built");
  trainer.start();
  clock.say("splats seeded, splats and photographs uploaded");
  trainer.step();
  clock.say("first step");
  std::printf("  %-46s %8.3f s\n", "all", clock.total());

  const double views = static_cast<double>(dataset.training.size() + dataset.heldOut.size());
  std::printf(
      "%.0f views, %.2f MB of pixels each; host memory grew by %.1f MB while they were loaded, %.2f MB a view\n", views,
      static_cast<double>(dataset.imageBytes()) / views * 1e-6, loaded - before, (loaded - before) / views);
  std::printf("%s, %llu splats: GPU buffers %.1f MB\n", describe(context.info()).c_str(),
              static_cast<unsigned long long>(trainer.splats()), static_cast<double>(GpuBuffer::liveBytes()) * 1e-6);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s DATASET [RESOLUTION [MEGABYTES]]\n", argv[0]);
    return 2;
  }
  try {
    const int megabytes = argc > 3 ? std::atoi(argv[3]) : 0;
    run(argv[1], argc > 2 ? std::atoi(argv[2]) : 0, static_cast<uint64_t>(std::max(megabytes, 0)) * 1000000);
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "error: %s\n", e.what());
    return 1;
  }
}
