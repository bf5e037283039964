// Times the trainer's own steps on the chosen device, whole and stage by stage, and says what they take of its memory.
//
//   bench_step [SPLATS WIDTH HEIGHT [DEGREE]]
//
// The step's time is the host's clock around whole steps without profiling; stage times are the GPU's own timestamps.
// QUOR_FORCE_FALLBACKS=1 measures the kernels of a device that has neither float atomics nor subgroup operations.
#include <chrono>
#include <climits>

#include "bench_common.h"
#include "gs/schedule.h"
#include "gs/trainer.h"

namespace {

using namespace quor::gs;
using quor::bench::Size;

// The default technique's steps, with every learning rate zero and no pass on the set of splats: the work of a step,
// and the scene stays as it is.
TrainJob steadyJob(const Size& size) {
  TrainJob job;
  job.technique = Technique::Mcmc;
  job.iterations = 30000;
  job.shDegree = size.degree;
  job.shDegreeInterval = 0;
  job.downscaleLevels = 0;
  job.densifyFrom = INT_MAX;
  job.splatBudget = job.mcmcTarget = size.splats;
  job.mcmcPositionRateStart = job.mcmcPositionRateEnd = job.opacityRate = job.mcmcOpacityRateEnd = 0;
  job.scaleRate = job.rotationRate = job.shDcRate = 0;
  return resolved(job);
}

Dataset oneView(const Size& size) {
  Dataset dataset;
  const size_t bytes = 3 * static_cast<size_t>(size.width) * static_cast<size_t>(size.height);
  dataset.training.push_back({"view", quor::bench::benchCamera(size), {size.width, size.height, {}}});
  dataset.training[0].image.rgb.assign(bytes, 0x60);
  return dataset;
}

// A run of this technique that has come to these splats and knows no moments yet.
Checkpoint checkpointOf(const TrainJob& job, GaussianSet set, double extent) {
  Checkpoint checkpoint;
  checkpoint.header.technique = job.technique;
  checkpoint.header.count = checkpoint.header.mcmcTarget = set.count;
  checkpoint.header.sceneExtent = static_cast<float>(extent);
  for (size_t g = 0; g < kGroupCount; ++g) {
    checkpoint.firstMoments[g].resize(set.count * kGroupWidths[g]);
    checkpoint.secondMoments[g].resize(set.count * kGroupWidths[g]);
  }
  checkpoint.set = std::move(set);
  return checkpoint;
}

void run(VulkanContext& context, KernelRegistry& registry, const Size& size) {
  const TrainJob job = steadyJob(size);
  const Dataset dataset = oneView(size);
  GaussianSet scene = quor::bench::benchScene(size);
  const auto figures = quor::bench::measureScene(context, registry, scene, dataset.training[0].camera);
  std::printf("%u splats, %dx%d, degree %d: %u instances\n", size.splats, size.width, size.height, size.degree,
              figures.instances);

  quor::LogStore log(100);
  Trainer trainer(context, registry, log, job, dataset);
  trainer.resume(checkpointOf(job, std::move(scene), dataset.geometry.extent));
  for (int i = 0; i < 2; ++i) trainer.step();
  const auto timing = quor::bench::measure(
      [&] {
        const auto start = std::chrono::steady_clock::now();
        trainer.step();
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
      },
      2000, 50);
  std::printf("  step %.2f ms (median of %zu; least %.2f)\n", timing.median, timing.runs, timing.least);

  constexpr int kProfiled = 10;  // one of them reads the loss
  trainer.stream().setProfiling(true);
  for (int i = 0; i < kProfiled; ++i) trainer.step();
  for (const StageTime& stage : trainer.stream().takeProfile()) {
    std::printf("    %-20s %9.3f ms\n", stage.stage, stage.milliseconds / kProfiled);
  }

  const auto perSplat = [&](uint64_t bytes) { return static_cast<double>(bytes) / size.splats; };
  const uint64_t all = GpuBuffer::liveBytes();
  std::printf("  memory: splats, gradients and moments %.0f bytes a splat; all buffers %.1f MB, %.0f bytes a splat\n",
              perSplat(figures.storeBytes), static_cast<double>(all) * 1e-6, perSplat(all));
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<Size> small = {{7000, 315, 177, 0}, {7000, 320, 180, 3}, {50000, 640, 360, 3}};
  std::vector<Size> all = small;
  all.push_back({1000000, 1600, 1063, 3});
  return quor::bench::benchMain(argc, argv, small, all, run);
}
