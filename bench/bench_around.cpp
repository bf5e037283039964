// Times what happens around the training steps: passes on the set of splats, checkpoints, exports, level changes and
// the scoring of held-out views, beside what the memory or the disk would need for as many bytes.
//
//   bench_around [--json FILE] [--digests] [SPLATS]...
//
// Each is measured in turns with its floor: a plain copy in host memory, or a plain sequential write or read of as many
// bytes as the file has. --digests says what the passes and writers leave, to hold two builds against each other; on
// Mesa's software driver Vanilla's choice of splats repeats only with LP_NUM_THREADS=1, since gradients are added in
// any order. Files go to a temporary folder. The JSON file is for scripts/bench_compare.
#include <filesystem>
#include <optional>
#include <string>

#include "around_bench.h"
#include "bench_common.h"
#include "bench_peaks.h"
#include "gs/data/device_image_cache.h"
#include "gs/files/checkpoint.h"
#include "gs/files/ply.h"
#include "gs/files/splat_file.h"
#include "gs/render/blend_trial.h"
#include "gs/splat_kernels.h"
#include "gs/splats/splat_snapshot.h"
#include "gs/train/evaluation.h"
#include "gs/train/strategy/adaptive_density.h"
#include "gs/train/strategy/mcmc.h"
#include "gs/train/trainer.h"
#include "kernels.h"
#include "samples.h"
#include "steady_training.h"

namespace {

using namespace quor::gs;
using quor::bench::Report;
using quor::bench::Size;
namespace fs = std::filesystem;

constexpr int kWidth = 640, kHeight = 360;
constexpr size_t kPhotographs = 40, kHeldOut = 5;
constexpr double kPhotoBytes = 3.0 * kWidth * kHeight;
constexpr double kExtent = 5;       // larger than the bench's scene is deep, so that all gradients count in full
constexpr size_t kAddedEvery = 20;  // of the splats, by a pass

// The one place that makes photographs' pixels.
std::vector<View> photographs(const Size& size, size_t count) {
  std::vector<View> views;
  for (size_t v = 0; v < count; ++v) {
    quor::Image image{size.width, size.height, std::vector<uint8_t>(static_cast<size_t>(kPhotoBytes))};
    for (size_t i = 0; i < image.rgb.size(); ++i) image.rgb[i] = static_cast<uint8_t>(i * i / 1021 + 17 * v);
    views.push_back({"view" + std::to_string(v), quor::bench::benchCamera(size), StoredImage(std::move(image))});
  }
  return views;
}

class Around : private quor::bench::AroundBench {
 public:
  Around(VulkanContext& context, KernelRegistry& registry, uint32_t splats, bool digests)
      : AroundBench(context, registry, {splats, kWidth, kHeight, 3}, digests) {}

  Report run() {
    measureStep();
    measureVanilla();
    measureMcmc();
    measureCheckpoints();
    measureExports();
    measureLevels();
    measureEvaluation();
    return {size_, kPhotographs, std::move(rows_)};
  }

 private:
  void measureStep() {
    const TrainJob job = quor::bench::steadyJob(size_);
    Dataset dataset;
    dataset.training = photographs(size_, 1);
    quor::LogStore log(100);
    Trainer trainer(context_, registry_, log, job, dataset, variantsByTrial(context_, registry_, log));
    trainer.resume(quor::bench::checkpointOf(job, set_, dataset.geometry.extent));
    for (int i = 0; i < 2; ++i) trainer.step();
    measure("step", 0, {}, [&] { trainer.step(); }, {});
  }

  // A frame's gradients and what the densifier makes of them.
  void accumulate(Renderer& renderer, const GpuBuffer& photo, SplatStore& splats, AdaptiveDensity& strategy) {
    renderer.project(stream_, splats, quor::bench::benchCamera(size_), size_.degree, quor::bench::kBenchNear);
    renderer.rasterize(stream_, {0, 0, 0});
    renderer.lossAndBackward(stream_, splats, photo, lossScales(0.2f, size_.width, size_.height), {}, false);
    quor::SplitMix64 random(1);
    strategy.afterBackward({stream_, transfer_, splats, renderer, random});
    stream_.submit();
  }

  // The threshold that one splat in kAddedEvery is above.
  float threshold(const Renderer& renderer) {
    std::vector<float> gradient(size_t{2} * size_.splats), length(size_.splats);
    transfer_.download(renderer.screenMeanGradient(), gradient.data(), 0, 4 * gradient.size());
    for (size_t i = 0; i < length.size(); ++i) {
      length[i] = std::hypot(gradient[2 * i] * 0.5f * kWidth, gradient[2 * i + 1] * 0.5f * kHeight);
    }
    const auto at = length.end() - static_cast<ptrdiff_t>(length.size() / kAddedEvery);
    std::nth_element(length.begin(), at, length.end());
    return 2 * *at;  // a half's share of the gradient is what the densifier compares
  }

  // Positions, scales, rotations, opacities, flags and two statistics come down; sources, positions, scales and
  // opacities go up; everything is gathered anew.
  void measureVanilla() {
    const double bytes = floats(11 + 1 + 2 + 1 + 7 + 3 * kFloatsPerSplat);
    TrainJob job = resolved({});
    Renderer renderer(context_, registry_, Renderer::Mode::Training);
    renderer.reserve(2 * size_.splats, size_.width, size_.height);
    GpuBuffer photo(context_, static_cast<uint64_t>(kPhotoBytes), BufferKind::Device, "bench");
    transfer_.fill(photo, 0x60606060, 0, photo.size());
    for (const bool grows : {false, true}) {
      const uint32_t capacity = size_.splats + (grows ? 0 : size_.splats / 2);
      SplatStore splats(context_, SplatStore::Use::Training);
      AdaptiveDensity strategy(job, kExtent, 4 * uint64_t{size_.splats});
      const auto refine = [&] {
        quor::SplitMix64 random(1);
        strategy.densify({stream_, transfer_, splats, renderer, random}, true);
      };
      const auto prepare = [&] {
        if (grows) splats = SplatStore(context_, SplatStore::Use::Training);
        upload(splats, capacity);
        accumulate(renderer, photo, splats, strategy);
        if (!grows) job.densifyGradient = threshold(renderer);
      };
      const char* name = grows ? "Vanilla pass, more room" : "Vanilla pass";
      measureCopy(name, bytes, prepare, refine);
      sayDigest(name, splats);
      if (!grows) {
        measureCopy("opacity reset", floats(4), {}, [&] {
          quor::SplitMix64 random(1);
          strategy.resetOpacities({stream_, transfer_, splats, renderer, random});
        });
        sayDigest("opacity reset", splats);
      }
    }
  }

  void measureMcmc() {
    SplatStore splats(context_, SplatStore::Use::Training);
    const uint32_t wanted = size_.splats + size_.splats / uint32_t{kAddedEvery};
    const TrainJob job = resolved({});
    const Renderer renderer(context_, registry_, Renderer::Mode::RenderOnly);
    Mcmc strategy(job, kExtent, 2 * uint64_t{size_.splats});
    measureCopy(
        "MCMC pass", floats(11 + 1 + 1 + 7 + 3 * kFloatsPerSplat), [&] { upload(splats, wanted); },
        [&] {
          quor::SplitMix64 random(1);
          strategy.relocate({stream_, transfer_, splats, renderer, random}, wanted);
        });
    sayDigest("MCMC pass", splats);
  }

  void measureCheckpoints() {
    const double bytes = floats(3 * kFloatsPerSplat);
    const fs::path path = folder_ / "checkpoint.quor";
    SplatStore splats(context_, SplatStore::Use::Training);
    upload(splats, 0);
    std::optional<SplatSnapshot> snapshot(std::in_place, context_);
    const auto take = [&] { snapshot->take(stream_, splats); };
    measureCopy(
        "checkpoint, first copy", bytes, [&] { snapshot.emplace(context_); }, take);
    measureCopy("checkpoint, next copies", bytes, {}, take);
    CheckpointHeader header;
    header.count = splats.count();
    measure(
        "checkpoint, write to disk", bytes, {}, [&] { writeCheckpoint(path, header, snapshot->arrays()); },
        [&] { floors_.write(bytes, true); });
    sayDigest("checkpoint", path);
    Checkpoint checkpoint;
    measure(
        "checkpoint, read", bytes, [&] { checkpoint = {}; }, [&] { checkpoint = readCheckpoint(path); },
        [&] { floors_.read(path, bytes); });
    measureCopy(
        "checkpoint, to the GPU", bytes, [&] { splats = SplatStore(context_, SplatStore::Use::Training); },
        [&] {
          splats.upload(transfer_, checkpoint.set);
          splats.uploadMoments(transfer_, checkpoint.firstMoments, checkpoint.secondMoments);
        });
  }

  void measureExports() {
    SplatStore splats(context_, SplatStore::Use::Training);
    upload(splats, 0);
    GaussianSet set;
    measureCopy(
        "splats to the host", floats(kFloatsPerSplat), [&] { set = {}; }, [&] { set = splats.download(transfer_); });
    const auto file = [&](const char* name, const auto& write) {
      const fs::path path = folder_ / name;
      write(path, set);
      const auto bytes = static_cast<double>(fs::file_size(path));
      measure(
          name, bytes, {}, [&] { write(path, set); }, [&] { floors_.write(bytes, false); });
      sayDigest(name, path);
    };
    file("scene.ply", [](const fs::path& path, const GaussianSet& s) { writePly(path, s, "bench"); });
    file("scene.splat", [](const fs::path& path, const GaussianSet& s) { writeSplat(path, s); });
    const fs::path path = folder_ / "scene.ply";
    const auto bytes = static_cast<double>(fs::file_size(path));
    measure(
        "scene.ply, read", bytes, [&] { set = {}; }, [&] { set = readPly(path); }, [&] { floors_.read(path, bytes); });
    sayDigest("scene.ply, read", set);
  }

  // The whole photographs are read, where they are scaled, and what is left of them goes up.
  void measureLevels() {
    const std::vector<View> views = photographs(size_, kPhotographs);
    const double all = kPhotoBytes * kPhotographs;
    DeviceImageCache photos(context_, views, UINT64_MAX, {});
    for (const int level : {2, 1, 0}) {
      const double bytes = level > 0 ? all + all / std::pow(4, level) : all;
      measureCopy(
          "photographs to level " + std::to_string(level), bytes, [&] { photos.setLevel(transfer_, level + 1); },
          [&] { photos.setLevel(transfer_, level); });
    }
  }

  void measureEvaluation() {
    const std::vector<View> views = photographs(size_, kHeldOut);
    Renderer renderer(context_, registry_, Renderer::Mode::Training);
    SplatStore splats(context_, SplatStore::Use::Training);
    upload(splats, 0);
    renderer.reserve(splats.count(), size_.width, size_.height);
    const std::atomic<bool> cancel = false;
    const auto evaluateViews = [&] {
      evaluate(stream_, transfer_, renderer, splats, views, {}, cancel,
               [](const std::string&, const quor::Image&, const ImageScores&, const quor::Image&) {});
    };
    evaluateViews();
    measure("evaluation, " + std::to_string(kHeldOut) + " views", 0, {}, evaluateViews, {});
  }
};

void run(const std::vector<std::string>& words) {
  const char* json = nullptr;
  bool digests = false;
  std::vector<uint32_t> counts;
  for (size_t i = 0; i < words.size(); ++i) {
    if (words[i] == "--digests") {
      digests = true;
    } else if (words[i] == "--json" && i + 1 < words.size()) {
      json = words[++i].c_str();
    } else if (const int count = std::atoi(words[i].c_str()); count > 0) {
      counts.push_back(static_cast<uint32_t>(count));
    } else {
      throw std::runtime_error("usage: bench_around [--json FILE] [--digests] [SPLATS]...");
    }
  }
  if (counts.empty()) counts = {50000, 200000};
  applyLayerPolicy();
  VulkanContext context({});
  KernelRegistry registry(context, {splatKernels(), benchKernels()});
  std::printf("%s · driver %s\n", describe(context.info()).c_str(), context.info().driver.c_str());
  std::vector<Report> reports;
  for (const uint32_t count : counts) {
    reports.push_back(Around(context, registry, count, digests).run());
    quor::bench::print(reports.back());
  }
  if (json != nullptr) quor::bench::writeJson(json, context, quor::bench::measurePeaks(context, registry), reports);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    run({argv + 1, argv + argc});
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "error: %s\n", e.what());
    return 1;
  }
}
