// Times every kernel, and the scan and the sort made of them, one by one on a scene of splats and a view of it.
//
//   bench_kernels [SPLATS WIDTH HEIGHT [DEGREE]]
//
// Milliseconds are the GPU's own timestamps, or the host's clock about a submission where it has none. Bytes are the
// least that a kernel must move: each value that it needs read once, each that it makes written once. The share is of
// the bandwidth of a large copy on the same device, where a copied byte counts as one read and one written; small
// buffers that stay in caches may exceed it. The blending kernels are bound by arithmetic: of them the pairs of pixel
// and splat are counted, up to the last splat that each pixel needs.
#include <bit>
#include <functional>
#include <numeric>
#include <string>
#include <string_view>

#include "bench_common.h"
#include "bench_peaks.h"
#include "gpu/compute/compute_stream.h"
#include "gpu/memory/transfer.h"
#include "gpu/sort/radix_sorter.h"
#include "gpu/sort/run_sorter.h"
#include "gpu/sort/scanner.h"
#include "gs/render/image_loss.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gs/render/renderer.h"
#include "gs/splats/splat_store.h"

namespace {

using namespace quor::gs;
using quor::bench::Size;

// One 32-bit field of a push block.
struct Word {
  Word(uint32_t value) : bits(value) {}
  Word(float value) : bits(std::bit_cast<uint32_t>(value)) {}
  uint32_t bits;
};
using Push = std::vector<Word>;
using Buffers = std::vector<BufferRef>;
using Work = std::function<void()>;

constexpr double kPairs = -1;  // in place of bytes: count blended pairs

struct Row {
  std::string_view kernel;
  std::string_view detail;
  double bytes;
  Work work;
  Work prepare = {};  // before each run, not timed
};

uint32_t groupsOf(uint32_t items, uint32_t each) {
  return (items + each - 1) / each;
}

class KernelBench {
 public:
  KernelBench(VulkanContext& context, KernelRegistry& registry, const Size& size, const GaussianSet& scene,
              const quor::bench::SceneFigures& figures)
      : context_(context),
        stream_(context, registry),
        transfer_(context),
        camera_(quor::bench::benchCamera(size)),
        degree_(static_cast<uint32_t>(size.degree)),
        n_(size.splats),
        v_(figures.visible),
        m_(std::max(figures.instances, 1u)),
        w_(static_cast<uint32_t>(size.width)),
        h_(static_cast<uint32_t>(size.height)),
        splats_(context, SplatStore::Use::Training),
        scanner_(context),
        sorter_(context),
        ballotSorter_(context, RadixSorter::Ranks::Ballots),
        runSorter_(context) {
    splats_.upload(transfer_, scene);
    scanner_.reserve(std::max(n_ + 1, m_));
    sorter_.reserve(std::max(n_, m_));
    ballotSorter_.reserve(std::max(n_, m_));
    runSorter_.reserve(std::max(n_, m_));
    stream_.setProfiling(true);
  }

  void run() {
    std::printf("%u splats (%u visible), %ux%u, degree %u: %u instances\n", n_, v_, w_, h_, degree_, m_);
    bandwidth_ = quor::bench::measurePeaks(context_, stream_.registry()).bytes;
    std::printf("a copy moves %.1f GB/s\n", bandwidth_ * 1e-6);
    addProjection();
    addLists();
    addForward();
    addLoss();
    addLossTail();
    addBackward();
    addOptimiser();
    addPrimitives();
    std::printf("%-52s %9s %9s %9s %9s %8s %6s\n", "kernel", "ms", "least", "cpu ms", "MB", "GB/s", "share");
    for (const Row& row : rows_) report(row);
    for (const auto& table : {gpuKernels(), splatKernels()}) {
      for (const EmbeddedKernel& kernel : table) {
        const auto isOf = [&](const Row& row) { return row.kernel == kernel.name; };
        if (std::none_of(rows_.begin(), rows_.end(), isOf)) {
          std::printf("%-52s not on this device\n", std::string(kernel.name).c_str());
        }
      }
    }
  }

 private:
  GpuBuffer words(uint64_t count) {
    GpuBuffer buffer(context_, 4 * count, BufferKind::Device, "bench");
    transfer_.fill(buffer, 0, 0, buffer.size());
    return buffer;
  }

  Work linear(std::string_view kernel, const Buffers& buffers, const Push& push, uint32_t items) {
    return [=, this] { stream_.dispatch1D(kernel, buffers, push.data(), push.size() * sizeof(Word), items); };
  }
  Work grid(std::string_view kernel, const Buffers& buffers, const Push& push, uint32_t x, uint32_t y, uint32_t z) {
    return [=, this] { stream_.dispatch(kernel, buffers, push.data(), push.size() * sizeof(Word), x, y, z); };
  }
  // A row of a kernel with one invocation an item.
  void add(std::string_view kernel, double bytes, const Buffers& buffers, const Push& push, uint32_t items,
           Work prepare = {}) {
    rows_.push_back({kernel, "", bytes, linear(kernel, buffers, push, items), std::move(prepare)});
  }
  // A row of a kernel with one invocation a pixel and plane.
  void addPlanes(std::string_view kernel, std::string_view detail, double bytesPerPixel, const Buffers& buffers,
                 const Push& push, uint32_t pixelsX, uint32_t pixelsY, uint32_t planes) {
    rows_.push_back({kernel, detail, bytesPerPixel * p_,
                     grid(kernel, buffers, push, groupsOf(w_, pixelsX), groupsOf(h_, pixelsY), planes)});
  }

  Push cameraBlock() const {
    Push push;
    for (size_t r = 0; r < 3; ++r) {
      for (size_t c = 0; c < 3; ++c) push.emplace_back(static_cast<float>(camera_.rotation[3 * r + c]));
      push.emplace_back(static_cast<float>(camera_.translation[r]));
    }
    for (const double x : {camera_.fx, camera_.fy, camera_.cx, camera_.cy}) push.emplace_back(static_cast<float>(x));
    for (const double x : camera_.centre()) push.emplace_back(static_cast<float>(x));
    for (const float x : {0.0f, quor::bench::kBenchNear, 0.0f, 0.0f, 0.0f}) push.emplace_back(x);
    for (const uint32_t x : {n_, w_, h_, degree_}) push.emplace_back(x);
    return push;
  }

  BufferRef value(Group g) const { return &splats_.value(g); }
  BufferRef gradient(Group g) const { return &splats_.gradient(g); }
  // Bytes of a splat's SH coefficients above degree 0 that the active degree uses.
  double restBytes() const { return 12.0 * ((degree_ + 1) * (degree_ + 1) - 1); }

  void addProjection() {
    add("activate", 32.0 * n_, {value(kScales), value(kOpacities), &scale_, &opacity_}, {n_}, n_);
    add("preprocess_forward", 36.0 * n_ + (68 + restBytes()) * v_,
        {value(kPositions), &scale_, value(kRotations), &opacity_, value(kShDc), value(kShRest), &mean_, &conic_,
         &colour_, &depth_, &halfExtent_, &visible_},
        cameraBlock(), n_);
    add("depth_keys", 12.0 * n_ + 4.0 * v_, {&depth_, &visible_, &depthKey_, &order_}, {n_}, n_);
  }

  void addLists() {
    const Push push = {n_, w_, h_, uint32_t{TILE_SIZE}, tilesX_, tilesY_, 0u, 0u};
    const Buffers footprints = {&order_, &mean_, &conic_, &opacity_, &halfExtent_, &visible_};
    Buffers counting = footprints, writing = footprints;
    counting.push_back(&tileCount_);
    writing.insert(writing.end(), {&tileCount_, &tileKey_, &splatId_});
    const double footprintBytes = 8.0 * n_ + 32.0 * v_;

    // Eight passes over the depths, and four over the tiles, leave the result where it began.
    add("bin_count", footprintBytes + 4.0 * n_, counting, push, n_,
        [this] { runSorter_.sort(stream_, depthKey_, order_, depthKeyPartner_, orderPartner_, n_, 32); });
    add("bin_write", footprintBytes + 4.0 * n_ + 8.0 * m_, writing, push, n_, [this, count = rows_.back().work] {
      count();
      stream_.fill(tileCount_, 0, 4, 4ull * n_);
      scanner_.scan(stream_, tileCount_, n_ + 1);
    });
    add("tile_ranges", 4.0 * m_ + 4.0 * tiles_, {&tileKey_, &tileStart_}, {m_, tiles_}, tiles_ + 1,
        [this] { runSorter_.sort(stream_, tileKey_, splatId_, tileKeyPartner_, splatIdPartner_, m_, 16); });
  }

  void addBlending(std::string_view kernel, const Buffers& outputs, bool runs, Work prepare = {}) {
    if (!runs || !stream_.registry().runs(kernel)) return;
    Buffers buffers = {&tileStart_, &splatId_, &mean_, &conic_, &opacity_, &colour_};
    buffers.insert(buffers.end(), outputs.begin(), outputs.end());
    rows_.push_back(
        {kernel, "", kPairs, grid(kernel, buffers, {w_, h_, tilesX_, 0u}, tilesX_, tilesY_, 1), std::move(prepare)});
  }
  // Of the kernels that need so many lanes, which SPIR-V cannot say.
  bool runsPairs() const { return context_.info().subgroupSize >= 8; }
  bool runsWide() const { return context_.info().subgroupSize == 8; }

  void addForward() {
    const Buffers outputs = {&image_, &alpha_, &transmittance_, &lastContributor_};
    addBlending("rasterize_forward", outputs, true);
    addBlending("rasterize_forward_pairs", outputs, runsPairs());
    addBlending("rasterize_forward_wide", outputs, runsWide());
    add("composite_background", 28.0 * p_, {&image_, &alpha_}, {0.0f, 0.0f, 0.0f, p_}, p_);
  }

  void addLoss() {
    add("u8_to_f32", 15.0 * p_, {&photo_, &target_}, {3 * p_}, 3 * p_);
    addPlanes("ssim_stack_blur_h", "", 84, {&image_, &target_, &planes_}, {w_, h_}, 16, 16, 3);
    addPlanes("ssim_blur15", "along columns", 120, {&planes_, &partner_}, {w_, h_, 1u, 15u}, 16, 16, 15);
    add("ssim_tail_forward", 72.0 * p_, {&partner_, &dSsim_}, {p_}, 3 * p_);
    add("loss_partials", 36.0 * p_, {&image_, &target_, &dSsim_, &partials_}, {3 * p_}, 3 * p_);
    add("ssim_tail_backward", 120.0 * p_, {&partner_, &planes_}, {p_, scales_.ssim}, 3 * p_);
    addPlanes("ssim_blur15", "along rows", 120, {&planes_, &partner_}, {w_, h_, 0u, 15u}, 16, 16, 15);
    addPlanes("ssim_chain_backward", "", 72, {&partner_, &image_, &target_, &dSsim_}, {w_, h_}, 16, 16, 3);
  }

  // The whole loss in one kernel, and step by step what ends it.
  void addLossTail() {
    if (runsWide() && stream_.registry().runs("loss_strips")) {
      const uint32_t across = w_ <= 96 ? 1 : 1 + groupsOf(w_ - 96, 76), down = groupsOf(h_, 192);
      rows_.push_back({"loss_strips", "", 27.0 * p_,
                       grid("loss_strips", {&image_, &photo_, &dImage_, &partials_},
                            {w_, h_, groupsOf(h_, down), scales_.l1, scales_.ssim}, across, down, 3)});
    }
    const uint32_t across = groupsOf(w_, 16), down = groupsOf(h_, 16);
    rows_.push_back({"ssim_tiles", "", 51.0 * p_,
                     grid("ssim_tiles", {&image_, &photo_, &planes_, &partials_}, {w_, h_, 0u}, across, down, 3)});
    rows_.push_back({"loss_tiles", "", 71.0 * p_,
                     grid("loss_tiles", {&image_, &photo_, &planes_, &alpha_, &dImage_, &dAlpha_},
                          {w_, h_, scales_.l1, scales_.ssim, 0.1f, 0.1f, 0.1f, 1u}, across, down, 1)});
    add("alpha_gradient", 20.0 * p_, {&dImage_, &alpha_, &dAlpha_}, {0.1f, 0.1f, 0.1f, p_}, p_);
    add("loss_grad", 56.0 * p_, {&image_, &target_, &dSsim_, &alpha_, &dImage_, &dAlpha_},
        {p_, scales_.l1, 0.1f, 0.1f, 0.1f, 1u}, p_);
  }

  void addBackward() {
    const Buffers outputs = {&transmittance_, &lastContributor_, &dImage_,   &dAlpha_,
                             &dMean_,         &dConic_,          &dOpacity_, &dColour_};
    const Work zero = [this] {
      for (const GpuBuffer* sums : {&dMean_, &dConic_, &dOpacity_, &dColour_}) stream_.fill(*sums, 0);
    };
    addBlending("rasterize_backward:SG=0,NATIVE_ATOMIC=0", outputs, true, zero);
    addBlending("rasterize_backward:SG=0,NATIVE_ATOMIC=1", outputs, true, zero);
    addBlending("rasterize_backward:SG=1,NATIVE_ATOMIC=0", outputs, true, zero);
    addBlending("rasterize_backward:SG=1,NATIVE_ATOMIC=1", outputs, true, zero);
    for (const char* pairs : {"rasterize_backward_pairs:NATIVE_ATOMIC=1", "rasterize_backward_pairs:NATIVE_ATOMIC=0"}) {
      addBlending(pairs, outputs, runsPairs(), zero);
    }
    addBlending("rasterize_backward_wide", outputs, runsWide(), zero);

    add("preprocess_backward", (degree_ > 0 ? 236.0 : 56.0) * n_ + (84 + restBytes()) * v_,
        {value(kPositions), &scale_, value(kRotations), value(kShDc), value(kShRest), &visible_, &dMean_, &dConic_,
         &dColour_, gradient(kPositions), gradient(kScales), gradient(kRotations), gradient(kShDc), gradient(kShRest)},
        cameraBlock(), n_);
    // The trainer writes over dScale; here run after run would shrink it to nothing.
    add("activation_backward", 48.0 * n_,
        {&scale_, &opacity_, gradient(kScales), &dOpacity_, &dLogScale_, gradient(kOpacities)}, {n_, 0.0f, 0.0f}, n_);
    add("grad_stats", 4.0 * n_ + 24.0 * v_, {&dMean_, &visible_, &statistic_, &views_},
        {n_, 0u, 0.5f * static_cast<float>(w_), 0.5f * static_cast<float>(h_)}, n_);
  }

  // With rates of zero, so that the scene stays as it is.
  void addOptimiser() {
    for (const auto& [kernel, each] : {std::pair{"adam", 1u}, {"adam_quads", 4u}}) {
      std::vector<Work> groups;
      for (size_t i = 0; i < kGroupCount; ++i) {
        const Group g = static_cast<Group>(i);
        const uint32_t count = n_ * static_cast<uint32_t>(kGroupWidths[g]);
        groups.push_back(linear(kernel, {value(g), &splats_.firstMoment(g), &splats_.secondMoment(g), gradient(g)},
                                {count, 0.0f, 0.9f, 0.999f, 1e-15f, 0.5f, 0.5f}, groupsOf(count, each)));
      }
      rows_.push_back({kernel, "all six groups", 28.0 * kFloatsPerSplat * n_, [groups] {
                         for (const Work& group : groups) group();
                       }});
    }
    add("add_noise", 56.0 * n_, {value(kPositions), &scale_, value(kRotations), &opacity_}, {n_, 1u, 2u, 3u, 0.0f}, n_);
    add("flag_diverged", 240.0 * n_,
        {value(kPositions), value(kScales), value(kRotations), value(kOpacities), value(kShDc), value(kShRest),
         &statistic_},
        {n_}, n_);
    // By depth, which for the rows is no order at all: the worst a gather meets.
    add("gather_rows", 364.0 * n_, {&order_, value(kShRest), gradient(kShRest)}, {45 * n_, 45u, 0u}, 45 * n_);
  }

  void addPrimitives() {
    std::vector<uint32_t> keys(m_);
    quor::SplitMix64 random(1);
    for (uint32_t& key : keys) key = static_cast<uint32_t>(random.next());
    transfer_.upload(randomKeys_, keys.data(), 0, randomKeys_.size());
    const Work restore = [this] { stream_.copy(randomKeys_, keysA_, randomKeys_.size()); };
    const uint32_t blocks = groupsOf(m_, 1024), invocations = 256 * blocks;

    add("scan_block", 8.0 * m_, {&keysB_, &totals_}, {m_}, invocations);
    add("scan_add", 8.0 * m_, {&keysB_, &totals_}, {m_}, m_);
    rows_.push_back({"Scanner", "", 8.0 * m_, [this] { scanner_.scan(stream_, keysB_, m_); }});
    add("radix_hist", 4.0 * m_, {&keysA_, &histogram_}, {m_, 0u, blocks}, invocations, restore);
    const Work places = [this, blocks, count = rows_.back().work] {
      count();
      scanner_.scan(stream_, histogram_, 16 * blocks);
    };
    add("radix_scatter", 16.0 * m_, {&keysA_, &valuesA_, &keysB_, &valuesB_, &histogram_}, {m_, 0u, blocks},
        invocations, places);
    const uint32_t runs = RunSorter::runsFor(m_);
    const Work zero = [this, runs] {
      stream_.copy(randomKeys_, keysA_, randomKeys_.size());
      stream_.fill(runTable_, 0, 1024ull * runs);
    };
    rows_.push_back({"radix_runs_count", "", 4.0 * m_ + 2048.0 * runs,
                     grid("radix_runs_count", {&keysA_, &runTable_}, {m_, 0u, runs}, runs / 8, 1, 1), zero});
    const Work counted = [zero, count = rows_.back().work] {
      zero();
      count();
    };
    rows_.push_back(
        {"scan_runs", "", 2048.0 * runs, grid("scan_runs", {&runTable_, &runStarts_}, {256u, runs}, 1, 1, 1), counted});
    const Work scanned = [counted, scan = rows_.back().work] {
      counted();
      scan();
    };
    rows_.push_back({"radix_runs_scatter", "", 16.0 * m_ + 2048.0 * runs,
                     grid("radix_runs_scatter", {&keysA_, &valuesA_, &keysB_, &valuesB_, &runTable_}, {m_, 0u, runs},
                          runs / 8, 1, 1),
                     scanned});
    // Each pass of four or eight bits reads the keys twice and the values once, and writes both.
    const auto sort = [&](auto& sorter, uint32_t bits, uint32_t digitBits, std::string_view name,
                          std::string_view detail) {
      const uint32_t passes = bits / digitBits;
      rows_.push_back({name, detail, 20.0 * passes * m_,
                       [this, &sorter, bits] { sorter.sort(stream_, keysA_, valuesA_, keysB_, valuesB_, m_, bits); },
                       restore});
    };
    sort(sorter_, 32, 4, "RadixSorter", "32 bits");
    const bool ballots = stream_.registry().runs("radix_ballot_scatter") && context_.info().subgroupSize >= 8;
    if (ballots) sort(ballotSorter_, 32, 8, "RadixSorter", "32 bits, ballots");
    sort(runSorter_, 32, 8, "RunSorter", "32 bits");
    sort(sorter_, 16, 4, "RadixSorter", "16 bits");
    if (ballots) sort(ballotSorter_, 16, 8, "RadixSorter", "16 bits, ballots");
    sort(runSorter_, 16, 8, "RunSorter", "16 bits");
  }

  quor::bench::Timing time(const Row& row) {
    std::vector<double> processor;
    const auto once = [&] {
      if (row.prepare) row.prepare();
      stream_.submit();
      stream_.takeProfile();
      stream_.mark("work");
      row.work();
      const double before = quor::bench::processorMilliseconds();
      stream_.submit();
      processor.push_back(quor::bench::processorMilliseconds() - before);
      return stream_.takeProfile().back().milliseconds;
    };
    quor::bench::Timing timing = quor::bench::measure(once, 200, 20);
    std::nth_element(processor.begin(), processor.begin() + static_cast<ptrdiff_t>(processor.size() / 2),
                     processor.end());
    timing.processor = processor[processor.size() / 2];
    return timing;
  }

  void report(const Row& row) {
    const std::string name = std::string(row.kernel) + (row.detail.empty() ? "" : ", ") + std::string(row.detail);
    if (name.find(only_) == std::string::npos && !name.starts_with("tile_ranges")) {
      if (row.prepare) row.prepare();
      row.work();
      stream_.submit();
      return;
    }
    const quor::bench::Timing timing = time(row);
    std::printf("%-52s %9.3f %9.3f %9.3f ", name.c_str(), timing.median, timing.least, timing.processor);
    if (row.bytes == kPairs) {
      std::vector<int32_t> walked(p_);
      transfer_.download(lastContributor_, walked.data(), 0, lastContributor_.size());
      const double pairs = std::accumulate(walked.begin(), walked.end(), 0.0);
      std::printf("%9s %8s %6s  %.0f million pairs/s\n", "-", "-", "-", pairs / timing.median * 1e-3);
    } else {
      const double rate = row.bytes / timing.median;
      std::printf("%9.2f %8.2f %5.0f%%\n", row.bytes * 1e-6, rate * 1e-6, 100 * rate / bandwidth_);
    }
    std::fflush(stdout);
  }

  VulkanContext& context_;
  ComputeStream stream_;
  Transfer transfer_;
  const Camera camera_;
  // Splats, visible ones, instances; pixels; tiles.
  const uint32_t degree_, n_, v_, m_, w_, h_, p_ = w_ * h_;
  const uint32_t tilesX_ = groupsOf(w_, TILE_SIZE), tilesY_ = groupsOf(h_, TILE_SIZE), tiles_ = tilesX_ * tilesY_;
  const LossScales scales_ = lossScales(0.2f, camera_.width, camera_.height);
  SplatStore splats_;
  Scanner scanner_;
  RadixSorter sorter_;
  RadixSorter ballotSorter_;
  RunSorter runSorter_;
  const std::string only_ = std::getenv("BENCH_ONLY") != nullptr ? std::getenv("BENCH_ONLY") : "";
  double bandwidth_ = 0;  // bytes a millisecond
  std::vector<Row> rows_;

  GpuBuffer scale_ = words(3ull * n_), opacity_ = words(n_), mean_ = words(2ull * n_), conic_ = words(3ull * n_);
  GpuBuffer colour_ = words(3ull * n_), depth_ = words(n_), halfExtent_ = words(2ull * n_), visible_ = words(n_);
  GpuBuffer depthKey_ = words(n_), depthKeyPartner_ = words(n_), order_ = words(n_), orderPartner_ = words(n_);
  GpuBuffer tileCount_ = words(n_ + 1ull), tileStart_ = words(tiles_ + 1ull);
  GpuBuffer tileKey_ = words(m_), tileKeyPartner_ = words(m_), splatId_ = words(m_), splatIdPartner_ = words(m_);
  GpuBuffer image_ = words(3ull * p_), alpha_ = words(p_), transmittance_ = words(p_), lastContributor_ = words(p_);
  GpuBuffer photo_ = words((3ull * p_ + 3) / 4), target_ = words(3ull * p_), planes_ = words(15ull * p_);
  GpuBuffer partner_ = words(15ull * p_), dSsim_ = words(3ull * p_), partials_ = words(p_ / 2 + 16);
  GpuBuffer dImage_ = words(3ull * p_), dAlpha_ = words(p_);
  GpuBuffer dMean_ = words(2ull * n_), dConic_ = words(3ull * n_), dOpacity_ = words(n_), dColour_ = words(3ull * n_);
  GpuBuffer dLogScale_ = words(3ull * n_), statistic_ = words(n_), views_ = words(n_);
  GpuBuffer randomKeys_ = words(m_), keysA_ = words(m_), valuesA_ = words(m_), keysB_ = words(m_), valuesB_ = words(m_);
  GpuBuffer runTable_ = words(256ull * RunSorter::runsFor(m_));
  GpuBuffer runStarts_ = words(257);
  GpuBuffer histogram_ = words(16ull * groupsOf(m_, 1024)), totals_ = words(groupsOf(m_, 1024));
};

void run(VulkanContext& context, KernelRegistry& registry, const Size& size) {
  const GaussianSet scene = quor::bench::benchScene(size);
  const auto figures = quor::bench::measureScene(context, registry, scene, quor::bench::benchCamera(size));
  KernelBench(context, registry, size, scene, figures).run();
}

}  // namespace

int main(int argc, char** argv) {
  return quor::bench::benchMain(argc, argv, {{50000, 640, 360, 3}}, {{50000, 640, 360, 3}, {1000000, 1600, 1063, 3}},
                                run);
}
