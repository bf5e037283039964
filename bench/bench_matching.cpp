// Times the matching of SIFT features, and compares the matches with COLMAP's.
//
//   bench_matching [--peak N]            random descriptors, by kernel and by number of features
//   bench_matching [--peak N] DATABASE   every pair of a COLMAP database, beside COLMAP's own matcher on the same one
//
// A dot product of two descriptors is 128 multiply-adds (MAC). The share is of the device's peak: for a GPU the N
// billion MAC a second of its data sheet; for a software driver, by processor time of all threads, what a core does
// with multiply-adds of eight floats that stay in registers. COLMAP keeps no matches without geometric
// verification, so it is told to try as few models as it lets one. It searches approximately, so it
// does less work the more features there are.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/split_mix64.h"
#include "base/text/text.h"
#include "match_comparison.h"
#include "sfm/match/colmap_database.h"
#include "sfm/match/gpu_matcher.h"
#include "sfm/match/matching_kernels.h"
#include "sfm/match/sift_matcher.h"

namespace {

using namespace quor;

constexpr double kMacsOfADot = 128;

// Of this process or of the programs that it has run.
double processorSeconds(int whose) {
  rusage usage = {};
  getrusage(whose, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Span {
  double elapsed = 0, processor = 0;  // seconds
};

template <class Work>
Span timed(int whose, Work work) {
  const double processor = processorSeconds(whose);
  const auto start = std::chrono::steady_clock::now();
  work();
  return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
          processorSeconds(whose) - processor};
}

#if defined(__x86_64__)
using Eight [[gnu::vector_size(32)]] = float;

// Twelve independent chains hide the latency of a multiply-add on every core there is.
[[gnu::target("avx2,fma")]] float multiplyAdds(int turns) {
  Eight sums[12] = {};
  Eight a = {1, 2, 3, 4, 5, 6, 7, 8}, b = a * 1e-20f;
  for (int i = 0; i < turns; ++i) {
    for (Eight& sum : sums) sum = sum * a + b;
    asm volatile("" : "+x"(a), "+x"(b));
  }
  float total = 0;
  for (const Eight& sum : sums) total += sum[0];
  return total;
}

std::optional<double> corePeak() {
  if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma")) return {};
  constexpr int kTurns = 20'000'000;
  volatile float used = 0;
  const Span span = timed(RUSAGE_SELF, [&] { used = multiplyAdds(kTurns); });
  return 12.0 * 8 * kTurns / span.processor * 1e-9;
}
#else
std::optional<double> corePeak() {
  return {};
}
#endif

class MatchingBench {
 public:
  explicit MatchingBench(std::optional<double> peak) : peak_(peak) {
    std::printf("%s · driver %s\n", gs::describe(context_.info()).c_str(), context_.info().driver.c_str());
    if (software() && !peak_) peak_ = corePeak();
    if (peak_) std::printf("peak %.0f G MAC/s%s\n", *peak_, software() ? " a core" : "");
    std::printf("%-48s %9s %9s %16s %6s\n", "", "pairs/s", "G MAC/s", "G MAC/s a core", "peak");
  }

  void random() {
    for (const uint32_t features : {1000u, 4000u, 8192u}) {
      random(SiftMatcher::Kernel::Plain, "sift_match_tiles", features);
      if (context_.info().packedDot) random(SiftMatcher::Kernel::PackedDot, "sift_match_tiles_packed", features);
      random(SiftMatcher::Kernel::Wide, "sift_match_tiles_wide", features);
    }
  }

  void database(const std::filesystem::path& database) {
    const std::filesystem::path copy = std::filesystem::temp_directory_path() / "ombrelux_bench_matching.db";
    std::filesystem::copy_file(database, copy, std::filesystem::copy_options::overwrite_existing);
    ColmapDatabase(copy).clearMatches();
    const std::vector<DatabaseImage> images = ColmapDatabase(copy).images();
    const std::vector<ImagePair> pairs = exhaustivePairs(images);
    double all = 0, squares = 0;
    for (const DatabaseImage& image : images) {
      all += image.features;
      squares += 1.0 * image.features * image.features;
    }
    const double dots = (all * all - squares) / 2;
    std::printf("%zu images, %.0f features each\n", images.size(), all / static_cast<double>(images.size()));

    MatchSummary summary;
    const auto pairCount = static_cast<double>(pairs.size());
    const auto ignore = [](const std::string&, float) {};
    report("matchOnGpu", pairCount, dots,
           timed(RUSAGE_SELF, [&] { summary = matchOnGpu(context_, copy, pairs, {}, ignore, [] { return false; }); }));
    std::printf("  %s\n", describe(summary).c_str());

    const std::filesystem::path ours = copy.string() + ".exact";
    std::filesystem::rename(copy, ours);
    std::filesystem::copy_file(ours, copy);
    ColmapDatabase(copy).clearMatches();
    const std::string command =
        "QT_QPA_PLATFORM=offscreen colmap exhaustive_matcher --database_path '" + copy.string() +
        "' --SiftMatching.use_gpu 0 --SiftMatching.min_num_inliers 1 --SiftMatching.max_num_trials 100 > /dev/null";
    report("COLMAP, as if it were exact", pairCount, dots, timed(RUSAGE_CHILDREN, [&] {
             if (std::system(command.c_str()) != 0) throw std::runtime_error("COLMAP did not run.");
           }));
    compareMatches(ours, copy);
    std::filesystem::remove(ours);
    std::filesystem::remove(copy);
  }

 private:
  bool software() const { return context_.info().deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU; }

  void random(SiftMatcher::Kernel kernel, const char* name, uint32_t features) {
    SiftMatcher matcher(context_, registry_, {features, features}, {}, kernel);
    SplitMix64 random(features);
    for (uint32_t image = 0; image < 2; ++image) {
      std::vector<uint8_t> bytes(features * SiftMatcher::kDescriptorBytes);
      for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random.next() % 90);
      matcher.upload(image, bytes);
    }
    const uint64_t work = uint64_t{1} << (software() ? 25 : 32);
    const std::vector<SiftMatcher::Pair> pairs(std::max<uint64_t>(work / features / features, 1), {0u, 1u});
    const auto chunks = matcher.plan(pairs);
    const auto all = [&] {
      for (const auto& chunk : chunks) matcher.match(std::span(pairs).subspan(chunk.first, chunk.last - chunk.first));
    };
    matcher.match(std::span(pairs).first(1));  // builds the kernels
    const auto count = static_cast<double>(pairs.size());
    report(std::string(name) + ", " + std::to_string(features) + " features", count, count * features * features,
           timed(RUSAGE_SELF, all));
  }

  void report(const std::string& name, double pairs, double dots, const Span& span) const {
    const double macs = kMacsOfADot * dots * 1e-9;
    const double rate = macs / (software() ? span.processor : span.elapsed);
    std::printf("%-48s %9.1f %9.2f %16.2f ", name.c_str(), pairs / span.elapsed, macs / span.elapsed,
                macs / span.processor);
    std::printf("%s\n", peak_ ? formatText("%5.1f%%", 100 * rate / *peak_).c_str() : "");
    std::fflush(stdout);
  }

  std::optional<double> peak_;  // billions of MAC a second, of a core where the driver is software
  gs::VulkanContext context_{{}};
  gs::KernelRegistry registry_{context_, {gs::matchingKernels()}};
};

}  // namespace

int main(int argc, char** argv) {
  try {
    gs::applyLayerPolicy();
    std::optional<double> peak;
    int next = 1;
    if (next + 1 < argc && std::string_view(argv[next]) == "--peak") {
      peak = std::atof(argv[next + 1]);
      next += 2;
    }
    MatchingBench bench(peak);
    if (next < argc) {
      bench.database(argv[next]);
    } else {
      bench.random();
    }
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "error: %s\n", e.what());
    return 1;
  }
}
