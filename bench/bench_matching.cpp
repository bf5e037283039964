// Times the matching of SIFT features.
//
//   bench_matching            random descriptors, by kernel and by number of features
//   bench_matching DATABASE   every pair of a COLMAP database, beside COLMAP's own matcher on the same database
//
// A dot product of two descriptors counts as 128 multiplications and additions. The peak is what a kernel of nothing
// but independent multiply-adds in registers would reach; it is measured on the host's cores only for software drivers,
// so the share is printed as the rate in billions of them a second, to be held against the device's data sheet.
// COLMAP is told to ask for more inliers than there are features, which makes it leave out geometric verification.
#include <sys/resource.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "base/split_mix64.h"
#include "bench_common.h"
#include "sfm/colmap_database.h"
#include "sfm/gpu_matcher.h"
#include "sfm/sift_matcher.h"

namespace {

using namespace quor;

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Of this process or of the programs that it has run, on all cores.
double processorSeconds(int whose) {
  rusage usage = {};
  getrusage(whose, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

std::vector<uint8_t> randomDescriptors(uint32_t count, uint64_t seed) {
  SplitMix64 random(seed);
  std::vector<uint8_t> bytes(size_t{count} * SiftMatcher::kDescriptorBytes);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random.next() % 90);
  return bytes;
}

void report(const char* name, double pairs, double dots, double seconds, double processorSeconds) {
  std::printf("%-44s %10.1f %12.2f %10.1f %14.2f\n", name, pairs / seconds, dots / seconds * 1e-9,
              128 * dots / seconds * 1e-9, 128 * dots / processorSeconds * 1e-9);
  std::fflush(stdout);
}

void benchKernel(gs::VulkanContext& context, gs::KernelRegistry& registry, SiftMatcher::Kernel kernel, const char* name,
                 uint32_t features) {
  const uint32_t images = 4;
  SiftMatcher matcher(context, registry, std::vector<uint32_t>(images, features), {}, kernel);
  for (uint32_t i = 0; i < images; ++i) matcher.upload(i, randomDescriptors(features, i));
  std::vector<SiftMatcher::Pair> pairs;
  const uint64_t most = context.info().deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU ? 1u << 26 : 1u << 30;
  const uint64_t wanted = std::max<uint64_t>(most / features / features, 1);
  for (uint32_t i = 0; i < wanted; ++i) pairs.emplace_back(i % images, (i + 1) % images);
  const auto chunks = matcher.plan(pairs);
  const auto once = [&] {
    const auto start = std::chrono::steady_clock::now();
    for (const auto& chunk : chunks) matcher.match(std::span(pairs).subspan(chunk.first, chunk.last - chunk.first));
    return 1e3 * secondsSince(start);
  };
  once();
  const double seconds = 1e-3 * bench::measure(once, 500, 5).median;
  const auto count = static_cast<double>(pairs.size());
  report((std::string(name) + ", " + std::to_string(features) + " features").c_str(), count,
         count * features * features, seconds);
}

void benchDatabase(gs::VulkanContext& context, const std::filesystem::path& database) {
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
  std::printf("%zu images, %.0f features each, %zu pairs\n", images.size(), all / static_cast<double>(images.size()),
              pairs.size());

  const MatchSummary summary = matchOnGpu(
      context, copy, pairs, {}, [](const std::string&, float) {}, [] { return false; });
  report("matchOnGpu", static_cast<double>(pairs.size()), dots, summary.seconds);
  std::printf("  %s\n", describe(summary).c_str());

  ColmapDatabase(copy).clearMatches();
  const std::string command = "QT_QPA_PLATFORM=offscreen colmap exhaustive_matcher --database_path '" + copy.string() +
                              "' --SiftMatching.use_gpu 0 --SiftMatching.min_num_inliers 1000000000 > /dev/null";
  const auto start = std::chrono::steady_clock::now();
  if (std::system(command.c_str()) != 0) throw std::runtime_error("COLMAP did not run.");
  report("COLMAP on the processor, without verification", static_cast<double>(pairs.size()), dots, secondsSince(start));
  std::filesystem::remove(copy);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    gs::applyLayerPolicy();
    gs::VulkanContext context({});
    gs::KernelRegistry registry(context);
    std::printf("%s · driver %s\n", gs::describe(context.info()).c_str(), context.info().driver.c_str());
    std::printf("%-44s %10s %12s %10s\n", "", "pairs/s", "G dots/s", "G MAC/s");
    if (argc > 1) {
      benchDatabase(context, argv[1]);
      return 0;
    }
    for (const uint32_t features : {1000u, 4000u, 8192u}) {
      benchKernel(context, registry, SiftMatcher::Kernel::Plain, "sift_match_tiles", features);
      benchKernel(context, registry, SiftMatcher::Kernel::Wide, "sift_match_tiles_wide", features);
    }
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "error: %s\n", e.what());
    return 1;
  }
}
