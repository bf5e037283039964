// Times the trainer's own steps on the chosen device, whole and stage by stage, beside what the device could do at
// best, and says what they take of its memory.
//
//   bench_step [--json FILE] [--gpu-kernels] [SIZE... | SPLATS WIDTH HEIGHT [DEGREE]]
//
// SIZE is one of the names below, or "all". The step's time is the host's clock around whole steps without profiling,
// the processor's is that of all threads; stage times are the GPU's own timestamps, or the host's clock about separate
// submissions. A stage's floor is the longer of its least bytes at the bandwidth of a copy and its multiply-adds at the
// measured peak (step_stages.h). Two JSON files are compared by scripts/bench_compare. QUOR_FORCE_FALLBACKS=1 measures
// the kernels of a device that has neither float atomics nor subgroup operations; --gpu-kernels those of a GPU, also on
// a software driver, to count what a step records.
#include <chrono>
#include <map>
#include <string>

#include "bench_common.h"
#include "bench_peaks.h"
#include "gs/render/blend_trial.h"
#include "gs/splat_kernels.h"
#include "gs/train/trainer.h"
#include "kernels.h"
#include "samples.h"
#include "steady_training.h"
#include "step_stages.h"

namespace {

using namespace quor::gs;
using quor::bench::Samples;
using quor::bench::Size;
using quor::bench::writeSamples;

Dataset oneView(const Size& size) {
  Dataset dataset;
  const size_t bytes = 3 * static_cast<size_t>(size.width) * static_cast<size_t>(size.height);
  const quor::Image image{size.width, size.height, std::vector<uint8_t>(bytes, 0x60)};
  dataset.training.push_back({"view", quor::bench::benchCamera(size), StoredImage(image)});
  return dataset;
}

struct StageReport {
  std::string name;
  Samples milliseconds;
  quor::bench::StageWork work;
  double floor;
};

struct StepReport {
  std::string size;
  quor::bench::StepSize scene;
  Samples milliseconds, processor;
  std::vector<StageReport> stages;
  double storeBytes, allBytes;
  ComputeStream::Counts counts;  // of one step
};

bool withGpuKernels = false;

constexpr size_t kSteps = 60, kProfiledSteps = 20;
constexpr double kEnoughMilliseconds = 3000;

// Stage by stage, one profile a step: a stage that a step has twice counts once with its sum.
std::vector<StageReport> profile(Trainer& trainer, const quor::bench::StepSize& scene,
                                 const quor::bench::Peaks& peaks) {
  std::vector<std::string> order;
  std::map<std::string, std::vector<double>> times;
  trainer.stream().setProfiling(true);
  for (size_t i = 0; i < kProfiledSteps; ++i) {
    trainer.step();
    for (const StageTime& stage : trainer.stream().takeProfile()) {
      if (times.find(stage.stage) == times.end()) order.emplace_back(stage.stage);
      times[stage.stage].push_back(stage.milliseconds);
    }
  }
  trainer.stream().setProfiling(false);
  std::vector<StageReport> stages;
  for (const std::string& name : order) {
    const auto work = quor::bench::stageWork(name.c_str(), scene);
    stages.push_back(
        {name, Samples(times[name]), work, std::max(work.bytes / peaks.bytes, work.multiplyAdds / peaks.multiplyAdds)});
  }
  return stages;
}

StepReport measureStep(VulkanContext& context, KernelRegistry& registry, const Size& size,
                       const quor::bench::Peaks& peaks) {
  const TrainJob job = quor::bench::steadyJob(size);
  const Dataset dataset = oneView(size);
  GaussianSet set = quor::bench::benchScene(size);
  const auto figures = quor::bench::measureScene(context, registry, set, dataset.training[0].camera);
  const double pixels = static_cast<double>(size.width) * size.height;
  const quor::bench::StepSize scene = {static_cast<double>(size.splats),
                                       static_cast<double>(figures.visible),
                                       static_cast<double>(figures.instances),
                                       pixels,
                                       figures.pairs,
                                       size.degree};

  quor::LogStore log(100);
  const Renderer::Variants variants =
      withGpuKernels ? Renderer::Variants::forGpu(context, registry) : variantsByTrial(context, registry, log);
  Trainer trainer(context, registry, log, job, dataset, variants);
  trainer.resume(quor::bench::checkpointOf(job, std::move(set), dataset.geometry.extent));
  for (int i = 0; i < 2; ++i) trainer.step();
  const ComputeStream::Counts before = trainer.stream().counts();
  trainer.step();
  const ComputeStream::Counts after = trainer.stream().counts();
  std::vector<double> wall, processor;
  for (double total = 0; wall.size() < 5 || (wall.size() < kSteps && total < kEnoughMilliseconds);
       total += wall.back()) {
    const auto start = std::chrono::steady_clock::now();
    const double before = quor::bench::processorMilliseconds();
    trainer.step();
    wall.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    processor.push_back(quor::bench::processorMilliseconds() - before);
  }
  std::string name = std::to_string(size.splats) + " splats, " + std::to_string(size.width) + "x" +
                     std::to_string(size.height) + ", degree " + std::to_string(size.degree);
  return {std::move(name),
          scene,
          Samples(wall),
          Samples(processor),
          profile(trainer, scene, peaks),
          static_cast<double>(figures.storeBytes),
          static_cast<double>(GpuBuffer::liveBytes()),
          {after.dispatches - before.dispatches, after.barriers - before.barriers, after.submits - before.submits}};
}

void print(const StepReport& r, const quor::bench::Peaks& peaks) {
  std::printf("%s: %.0f visible, %.0f instances, %.1f M pairs\n", r.size.c_str(), r.scene.visible, r.scene.instances,
              r.scene.pairs * 1e-6);
  std::printf("  step: least %.2f ms, median %.2f of %zu; processor %.2f ms in the median, %.2f least\n",
              r.milliseconds.at(0), r.milliseconds.at(0.5), r.milliseconds.sorted.size(), r.processor.at(0.5),
              r.processor.at(0));
  std::printf("  %llu dispatches, %llu barriers, %llu submits\n", static_cast<unsigned long long>(r.counts.dispatches),
              static_cast<unsigned long long>(r.counts.barriers), static_cast<unsigned long long>(r.counts.submits));
  std::printf("  %-20s %8s %8s %9s %8s %9s %8s %8s\n", "stage", "median", "least", "MB", "of copy", "M mul-add",
              "of peak", "floor");
  double sum = 0, floor = 0;
  for (const StageReport& s : r.stages) {
    const double ms = s.milliseconds.at(0.5);
    sum += ms;
    floor += s.floor;
    std::printf("  %-20s %8.3f %8.3f %9.2f %7.1f%% %9.1f %7.1f%% %8.3f\n", s.name.c_str(), ms, s.milliseconds.at(0),
                s.work.bytes * 1e-6, 100 * s.work.bytes / ms / peaks.bytes, s.work.multiplyAdds * 1e-6,
                100 * s.work.multiplyAdds / ms / peaks.multiplyAdds, s.floor);
  }
  std::printf("  %-20s %8.3f %55.3f\n", "sum", sum, floor);
  std::printf("  memory: splats, gradients and moments %.0f bytes a splat; all buffers %.1f MB, %.0f bytes a splat\n",
              r.storeBytes / r.scene.splats, r.allBytes * 1e-6, r.allBytes / r.scene.splats);
  std::fflush(stdout);
}

void writeJson(const char* path, const VulkanContext& context, const quor::bench::Peaks& peaks,
               const std::vector<StepReport>& reports) {
  std::FILE* file = std::fopen(path, "w");
  if (file == nullptr) throw std::runtime_error(std::string("Cannot write ") + path);
  std::fprintf(file, "{\n \"device\": \"%s\", \"driver\": \"%s\",\n", context.info().name.c_str(),
               context.info().driver.c_str());
  std::fprintf(file, " \"copyGBs\": %.2f, \"peakGmads\": %.2f,\n \"sizes\": {", peaks.bytes * 1e-6,
               peaks.multiplyAdds * 1e-6);
  const char* comma = "";
  for (const StepReport& r : reports) {
    std::fprintf(file,
                 "%s\n  \"%s\": {\n   \"instances\": %.0f, \"pairs\": %.0f, \"bytesASplat\": %.1f,\n   \"rows\": {",
                 comma, r.size.c_str(), r.scene.instances, r.scene.pairs, r.allBytes / r.scene.splats);
    comma = ",";
    std::fprintf(file, "\n    \"step\": ");
    writeSamples(file, r.milliseconds);
    std::fprintf(file, ",\n    \"step, processor\": ");
    writeSamples(file, r.processor);
    for (const StageReport& s : r.stages) {
      std::fprintf(file, ",\n    \"%s\": ", s.name.c_str());
      writeSamples(file, s.milliseconds);
    }
    std::fprintf(file, "}}");
  }
  std::fprintf(file, "\n }\n}\n");
  std::fclose(file);
}

struct Named {
  const char* name;
  Size size;
};
const Named kSizes[] = {{"sample", {7000, 315, 177, 0}},     {"7k-320", {7000, 320, 180, 3}},
                        {"7k-640", {7000, 640, 360, 3}},     {"50k-320", {50000, 320, 180, 3}},
                        {"50k-640", {50000, 640, 360, 3}},   {"200k-320", {200000, 320, 180, 3}},
                        {"200k-640", {200000, 640, 360, 3}}, {"reference", {1000000, 1600, 1063, 3}}};

// Without a name, what the device is up to: the reference step takes a processor minutes.
std::vector<Size> sizesFrom(const std::vector<std::string>& words, bool onProcessor) {
  std::vector<Size> sizes;
  if (words.size() >= 3 && words[0].find_first_not_of("0123456789") == std::string::npos) {
    const auto number = [&](size_t i) { return std::atoi(words[i].c_str()); };
    sizes = {{static_cast<uint32_t>(number(0)), number(1), number(2), words.size() > 3 ? number(3) : 3}};
    if (sizes[0].splats > 0 && sizes[0].width > 0 && sizes[0].height > 0) return sizes;
    sizes.clear();
  }
  for (const Named& named : kSizes) {
    const bool asked = std::find(words.begin(), words.end(), named.name) != words.end();
    const bool all = words.empty() || words[0] == "all";
    if (asked || (all && !(onProcessor && std::strcmp(named.name, "reference") == 0))) sizes.push_back(named.size);
  }
  return sizes;
}

void run(const std::vector<std::string>& words, const char* json) {
  applyLayerPolicy();
  VulkanContext context({});
  KernelRegistry registry(context, {splatKernels(), benchKernels()});
  std::printf("%s · driver %s\n", describe(context.info()).c_str(), context.info().driver.c_str());
  const auto sizes = sizesFrom(words, context.info().deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU);
  if (sizes.empty()) {
    throw std::runtime_error(
        "usage: bench_step [--json FILE] [--gpu-kernels] "
        "[sample|7k-320|7k-640|50k-320|50k-640|200k-320|200k-640|reference|all... | "
        "SPLATS WIDTH HEIGHT [DEGREE]]");
  }
  const quor::bench::Peaks peaks = quor::bench::measurePeaks(context, registry);
  std::printf("copy %.1f GB/s; arithmetic %.1f G multiply-adds/s\n", peaks.bytes * 1e-6, peaks.multiplyAdds * 1e-6);
  if (context.timestampBits() == 0) std::printf("no timestamps: stages are submitted one by one\n");
  std::vector<StepReport> reports;
  for (const Size& size : sizes) {
    reports.push_back(measureStep(context, registry, size, peaks));
    print(reports.back(), peaks);
  }
  if (json != nullptr) writeJson(json, context, peaks, reports);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  const char* json = nullptr;
  if (words.size() >= 2 && words[0] == "--json") {
    json = argv[2];
    words.erase(words.begin(), words.begin() + 2);
  }
  if (!words.empty() && words[0] == "--gpu-kernels") {
    withGpuKernels = true;
    words.erase(words.begin());
  }
  try {
    run(words, json);
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "error: %s\n", e.what());
    return 1;
  }
}
