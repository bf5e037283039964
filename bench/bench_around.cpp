// Times what happens around the training steps: passes on the set of splats, checkpoints, exports, level changes and
// the scoring of held-out views, beside what the memory or the disk would need for as many bytes.
//
//   bench_around [--json FILE] [--digests] [SPLATS]...
//
// Each is measured in turns with its floor: a plain copy in host memory, or a plain sequential write or read of as many
// bytes as the file has. --digests says what the passes and writers leave, to hold two builds against each other; on
// Mesa's software driver Vanilla's choice of splats repeats only with LP_NUM_THREADS=1, since gradients are added in
// any order. Files go to a temporary folder. The JSON file is for scripts/bench_compare.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <string>

#include "base/files/sync_file.h"
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
using quor::bench::Samples;
using quor::bench::Size;
namespace fs = std::filesystem;

constexpr int kWidth = 640, kHeight = 360;
constexpr size_t kPhotographs = 40, kHeldOut = 5;
constexpr double kPhotoBytes = 3.0 * kWidth * kHeight;
constexpr double kExtent = 5;  // larger than the bench's scene is deep, so that all gradients count in full
// Of the splats: dead before a pass, and added by one.
constexpr size_t kDeadEvery = 20, kAddedEvery = 20;
constexpr int kStepsBetweenPasses = 100;
constexpr double kEnoughMilliseconds = 1500;
constexpr size_t kMaxRuns = 15;

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

class TemporaryFolder {
 public:
  TemporaryFolder() : path_(fs::temp_directory_path() / ("ombrelux-bench-" + std::to_string(std::random_device{}()))) {
    fs::create_directory(path_);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  fs::path operator/(const char* name) const { return path_ / name; }

 private:
  fs::path path_;
};

template <class Work>
double milliseconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

uint64_t digest(std::span<const char> bytes) {  // FNV-1a
  uint64_t hash = 0xcbf29ce484222325u;
  for (const char byte : bytes) hash = (hash ^ static_cast<uint8_t>(byte)) * 0x100000001b3u;
  return hash;
}

using Step = std::function<void()>;

// What no way of doing it could beat, for that many bytes.
class Floors {
 public:
  explicit Floors(const TemporaryFolder& folder) : file_(folder / "floor"), from_(kBlock, 1), to_(kBlock, 2) {}

  void copy(double bytes) {
    forBlocks(bytes, [&](size_t n) { std::memcpy(to_.data(), from_.data(), n); });
  }
  void write(double bytes, bool onDisk) {
    {
      std::ofstream stream(file_, std::ios::binary | std::ios::trunc);
      forBlocks(bytes, [&](size_t n) { stream.write(from_.data(), static_cast<std::streamsize>(n)); });
    }
    if (onDisk) quor::syncFile(file_);
  }
  void read(const fs::path& path, double bytes) {
    std::ifstream stream(path, std::ios::binary);
    forBlocks(bytes, [&](size_t n) { stream.read(to_.data(), static_cast<std::streamsize>(n)); });
  }

 private:
  static constexpr size_t kBlock = 64 << 20;  // beyond the caches

  template <class Work>
  static void forBlocks(double bytes, Work work) {
    for (auto left = static_cast<size_t>(bytes); left > 0; left -= std::min(left, kBlock)) work(std::min(left, kBlock));
  }

  fs::path file_;
  std::vector<char> from_, to_;
};

struct Row {
  std::string name;
  Samples wall, processor;
  double bytes;  // 0: not counted
  double floor;  // milliseconds, least; 0: none is obvious
};

struct Report {
  Size size;
  std::vector<Row> rows;  // of which the first is the step
};

class Around {
 public:
  Around(VulkanContext& context, KernelRegistry& registry, uint32_t splats, bool digests)
      : context_(context),
        registry_(registry),
        size_{splats, kWidth, kHeight, 3},
        digests_(digests),
        floors_(folder_),
        stream_(context, registry),
        transfer_(context),
        set_(quor::bench::benchScene(size_)) {
    for (size_t i = 0; i < set_.count; i += kDeadEvery) set_.opacities[i] = -6;
    for (size_t g = 0; g < kGroupCount; ++g) {  // any values serve as moments
      first_[g] = set_.group(static_cast<Group>(g));
      second_[g] = first_[g];
      std::reverse(second_[g].begin(), second_[g].end());
    }
  }

  Report run() {
    measureStep();
    measureVanilla();
    measureMcmc();
    measureCheckpoints();
    measureExports();
    measureLevels();
    measureEvaluation();
    return {size_, std::move(rows_)};
  }

 private:
  double floats(double aSplat) const { return 4.0 * aSplat * static_cast<double>(size_.splats); }

  void measure(std::string name, double bytes, const Step& prepare, const Step& work, const Step& floor) {
    std::vector<double> wall, processor, floors;
    for (double total = 0; wall.size() < 5 || (total < kEnoughMilliseconds && wall.size() < kMaxRuns);
         total += wall.back()) {
      if (prepare) prepare();
      const double before = quor::bench::processorMilliseconds();
      wall.push_back(milliseconds(work));
      processor.push_back(quor::bench::processorMilliseconds() - before);
      floors.push_back(floor ? milliseconds(floor) : 0);
    }
    rows_.push_back({std::move(name), Samples(wall), Samples(processor), bytes, Samples(floors).at(0)});
  }
  void measureCopy(std::string name, double bytes, const Step& prepare, const Step& work) {
    measure(std::move(name), bytes, prepare, work, [&] { floors_.copy(bytes); });
  }

  void upload(SplatStore& splats, uint32_t capacity) {
    splats.upload(transfer_, set_, capacity);
    splats.uploadMoments(transfer_, first_, second_);
  }

  void sayDigest(const std::string& name, uint64_t value) const {
    std::printf("  digest of %s: %016llx\n", name.c_str(), static_cast<unsigned long long>(value));
  }
  void sayDigest(const std::string& name, const GaussianSet& set, const GroupArrays& first = {},
                 const GroupArrays& second = {}) const {
    if (!digests_) return;
    uint64_t all = set.count;
    for (size_t g = 0; g < kGroupCount; ++g) {
      for (const auto* values : {&set.group(static_cast<Group>(g)), &first[g], &second[g]}) {
        all = all * 31 + digest({reinterpret_cast<const char*>(values->data()), 4 * values->size()});
      }
    }
    sayDigest(name, all);
  }
  void sayDigest(const std::string& name, const SplatStore& splats) {
    if (!digests_) return;
    GroupArrays first, second;
    splats.downloadMoments(transfer_, first, second);
    sayDigest(name, splats.download(transfer_), first, second);
  }
  void sayDigest(const std::string& name, const fs::path& file) const {
    if (!digests_) return;
    std::ifstream stream(file, std::ios::binary);
    sayDigest(name, digest(std::string{std::istreambuf_iterator<char>(stream), {}}));
  }

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

  VulkanContext& context_;
  KernelRegistry& registry_;
  Size size_;
  bool digests_;
  TemporaryFolder folder_;
  Floors floors_;
  ComputeStream stream_;
  Transfer transfer_;
  GaussianSet set_;
  GroupArrays first_, second_;
  std::vector<Row> rows_;
};

void print(const Report& report) {
  const double step = report.rows[0].wall.at(0);
  std::printf("%u splats, degree %d, %zu photographs of %dx%d\n", report.size.splats, report.size.degree, kPhotographs,
              kWidth, kHeight);
  std::printf("  %-26s %9s %9s %9s %8s %8s %9s %7s %10s\n", "", "least ms", "median", "processor", "MB", "MB/s",
              "floor ms", "times", "100 steps");
  for (const Row& row : report.rows) {
    const double least = row.wall.at(0);
    std::printf("  %-26s %9.2f %9.2f %9.2f", row.name.c_str(), least, row.wall.at(0.5), row.processor.at(0));
    if (row.bytes > 0) {
      std::printf(" %8.2f %8.0f %9.2f %7.1f", row.bytes * 1e-6, row.bytes * 1e-3 / least, row.floor, least / row.floor);
    } else {
      std::printf(" %35s", "");
    }
    std::printf(" %9.2f%%\n", 100 * least / (kStepsBetweenPasses * step));
  }
  std::fflush(stdout);
}

void writeJson(const char* path, const VulkanContext& context, const quor::bench::Peaks& peaks,
               const std::vector<Report>& reports) {
  std::FILE* file = std::fopen(path, "w");
  if (file == nullptr) throw std::runtime_error(std::string("Cannot write ") + path);
  std::fprintf(file, "{\n \"device\": \"%s\", \"copyGBs\": %.2f, \"peakGmads\": %.2f,\n \"sizes\": {",
               context.info().name.c_str(), peaks.bytes * 1e-6, peaks.multiplyAdds * 1e-6);
  for (const Report& report : reports) {
    std::fprintf(file, "%s\n  \"%u splats\": {\"rows\": {", &report == reports.data() ? "" : ",", report.size.splats);
    for (const Row& row : report.rows) {
      std::fprintf(file, "%s\n    \"%s\": ", &row == report.rows.data() ? "" : ",", row.name.c_str());
      quor::bench::writeSamples(file, row.wall);
      std::fprintf(file, ",\n    \"%s, processor\": ", row.name.c_str());
      quor::bench::writeSamples(file, row.processor);
    }
    std::fprintf(file, "}}");
  }
  std::fprintf(file, "\n }\n}\n");
  std::fclose(file);
}

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
    print(reports.back());
  }
  if (json != nullptr) writeJson(json, context, quor::bench::measurePeaks(context, registry), reports);
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
