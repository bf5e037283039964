#include "gs/train/trainer.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/text/text.h"
#include "gpu/device/vulkan_context.h"
#include "gs/data/seed.h"
#include "gs/splats/splat_cap.h"
#include "gs/train/resume.h"
#include "gs/train/schedule.h"

namespace quor::gs {
namespace {

// Of the scene extent: anything nearer to a camera is not drawn.
constexpr double kNearPlane = 0.01;
constexpr double kBeta1 = 0.9, kBeta2 = 0.999;
constexpr float kEpsilon = 1e-15f;
// The displayed loss: the share of each new value in the average, and the steps between two values.
constexpr float kLossAverage = 0.1f;
constexpr int kLossEvery = 10;
// Photographs may take this share of the free GPU memory; when they need more they stay in host memory.
constexpr double kPhotoShare = 0.4;

uint64_t photoShare(const VulkanContext& context) {
  return static_cast<uint64_t>(kPhotoShare * static_cast<double>(context.freeMemory()));
}

uint64_t largestPixels(const Dataset& dataset) {
  uint64_t pixels = 1;
  for (const auto* views : {&dataset.training, &dataset.heldOut}) {
    for (const View& view : *views) {
      pixels = std::max(pixels, static_cast<uint64_t>(view.camera.width) * static_cast<uint64_t>(view.camera.height));
    }
  }
  return pixels;
}

// For the smaller photographs of a level, which have a quarter of the pixels at most.
HostImageCacheOptions scaledPool(const Dataset& dataset) {
  return {dataset.pool.folder, (dataset.pool.budget + 3) / 4};
}

// Reserves room for photographs and images; the splats take what the budget and the device leave. Says so in the log.
uint64_t capFor(const VulkanContext& context, const TrainJob& job, const Dataset& dataset, LogStore& log) {
  const uint64_t photos = DeviceImageCache::mostBytes(dataset.training, photoShare(context), job.downscaleLevels);
  // A viewer has a copy and a renderer of its own.
  const uint64_t viewerBytes = job.liveView ? kLiveBytesPerSplat + kRendererBytesPerSplat : 0;
  const SplatCap cap = splatCap(deviceLimits(context), job.splatBudget,
                                photos + largestPixels(dataset) * kRendererBytesPerPixel, viewerBytes);
  log.info(cap.reason);
  return cap.splats;
}

}  // namespace

Trainer::Trainer(VulkanContext& context, KernelRegistry& registry, LogStore& log, const TrainJob& job,
                 const Dataset& dataset, const Renderer::Variants& variants)
    : log_(log),
      job_(job),
      dataset_(dataset),
      stream_(context, registry),
      transfer_(context),
      splats_(context, SplatStore::Use::Training),
      renderer_(context, variants, Renderer::Mode::Training),
      photos_(context, dataset.training, photoShare(context), scaledPool(dataset)),
      random_(SplitMix64::fromSeed(job.seed)),
      strategy_(makeStrategy(job, dataset.geometry.extent, capFor(context, job, dataset, log))),
      order_(job.seed, static_cast<uint32_t>(dataset.training.size())),
      loss_(std::numeric_limits<float>::quiet_NaN()) {
  std::vector<std::string> kernels = renderer_.kernelNames();
  kernels.emplace_back("adam_quads");
  for (int degree = 1; degree <= job.shDegree && variants.shInOptimiser; ++degree) {
    kernels.push_back(formatText("adam_sh:DEGREE=%d", degree));
  }
  for (std::string& name : strategy_->kernels()) kernels.push_back(std::move(name));
  registry.prepare(kernels);
}

void Trainer::start() {
  const uint64_t points = dataset_.points.count();
  if (points < kMinSeedPoints) {
    log_.warning(formatText("The COLMAP model has too few points to start from (%llu): splats start at random places.",
                            static_cast<unsigned long long>(points)));
  }
  const Strategy::Seeds seeds = strategy_->seeds(points);
  SeedSettings settings;
  settings.count = seeds.count;
  settings.opacity = seeds.opacity;
  settings.centre = dataset_.geometry.centre;
  settings.extent = dataset_.geometry.extent;
  const GaussianSet seeded = seedFromPoints(dataset_.points.positions, dataset_.points.colors, settings, random_);
  splats_.upload(transfer_, seeded, static_cast<uint32_t>(strategy_->roomFor(seeded.count)));
  prepare();
}

void Trainer::resume(const Checkpoint& checkpoint) {
  const CheckpointHeader& header = checkpoint.header;
  requireContinuable(job_, header);
  requireSameScene(header, dataset_.geometry.extent);
  step_ = static_cast<int>(header.step);
  random_ = SplitMix64(header.randomState);
  strategy_->restore(header);
  splats_.upload(transfer_, checkpoint.set, static_cast<uint32_t>(strategy_->roomFor(header.count)));
  splats_.uploadMoments(transfer_, checkpoint.firstMoments, checkpoint.secondMoments);
  prepare();
  log_.info(formatText("Continuing from the checkpoint at step %u (%llu splats) towards %d", header.step,
                       static_cast<unsigned long long>(header.count), job_.iterations));
}

void Trainer::prepare() {
  renderer_.reserve(splats_.capacity(), 1, 1);
  applyLevel();
}

TrainingState Trainer::state() {
  return {stream_, transfer_, splats_, renderer_, random_, step_};
}

float Trainer::nearPlane() const {
  return static_cast<float>(kNearPlane * dataset_.geometry.extent);
}

// Photographs and buffers for the level of the next step.
void Trainer::applyLevel() {
  if (!photos_.setLevel(transfer_, levelAt(job_, step_))) return;
  for (size_t i = 0; i < photos_.count(); ++i) {
    renderer_.reserve(splats_.count(), photos_.camera(i).width, photos_.camera(i).height);
  }
}

void Trainer::step() {
  applyLevel();
  const uint64_t done = static_cast<uint64_t>(step_);
  const size_t view = order_.at(done);
  const size_t nextView = order_.at(done + 1);
  const bool scored = step_ % kLossEvery == 0 || std::isnan(loss_);

  stream_.mark("photograph");
  const GpuBuffer& photo = photos_.fetch(stream_, view);
  renderer_.project(stream_, splats_, photos_.camera(view), shDegreeAt(job_, step_), nearPlane());
  photos_.prefetch(nextView);
  renderer_.rasterize(stream_, job_.background);
  renderer_.lossAndBackward(stream_, splats_, photo, lossScales(job_.ssimWeight, renderer_.width(), renderer_.height()),
                            strategy_->regularisers(splats_.count()), scored);
  strategy_->afterBackward(state());
  optimise();
  strategy_->afterOptimiser(state());
  stream_.submit();

  if (scored) updateLoss();
  ++step_;
  refine();
}

void Trainer::updateLoss() {
  const ImageScores scores = renderer_.loss().finishScore(renderer_.width(), renderer_.height());
  const double weight = static_cast<double>(job_.ssimWeight);
  const float loss = static_cast<float>((1 - weight) * scores.l1 + weight * (1 - scores.ssim));
  loss_ = std::isnan(loss_) ? loss : loss_ + kLossAverage * (loss - loss_);
}

void Trainer::optimise() {
  stream_.mark("optimiser");
  const int t = step_ + 1;
  const Strategy::Rates own = strategy_->rates(step_);
  std::array<float, kGroupCount> rates{};
  rates[kPositions] = static_cast<float>(own.position);
  rates[kScales] = job_.scaleRate;
  rates[kRotations] = job_.rotationRate;
  rates[kOpacities] = own.opacity;
  rates[kShDc] = job_.shDcRate;
  rates[kShRest] = job_.shRestDivisor > 0 ? job_.shDcRate / job_.shRestDivisor : 0.0f;
  kernels::Adam::Push push = {.count = splats_.count(),
                              .rate = rates[kShRest],
                              .beta1 = static_cast<float>(kBeta1),
                              .beta2 = static_cast<float>(kBeta2),
                              .epsilon = kEpsilon,
                              .correction1 = static_cast<float>(1.0 - std::pow(kBeta1, t)),
                              .rootCorrection2 = static_cast<float>(std::sqrt(1.0 - std::pow(kBeta2, t)))};
  // Before the positions change: what adam_sh makes follows from the directions of this step.
  const int degree = shDegreeAt(job_, step_);
  const bool separateSh = renderer_.variants().shInOptimiser;
  if (degree > 0 && separateSh) optimiseSh(push, degree);
  for (size_t i = 0; i < kGroupCount; ++i) {
    const Group g = static_cast<Group>(i);
    // At degree 0 these have neither gradients nor moments: the update would change nothing.
    if (g == kShRest && (degree == 0 || separateSh)) continue;
    push.count = splats_.count() * static_cast<uint32_t>(kGroupWidths[g]);
    push.rate = rates[g];
    stream_.dispatch1D(kernels::Adam{.value = &splats_.value(g),
                                     .firstMoment = &splats_.firstMoment(g),
                                     .secondMoment = &splats_.secondMoment(g),
                                     .gradient = &splats_.gradient(g)},
                       push, (push.count + 3) / 4, "adam_quads");
  }
}

void Trainer::optimiseSh(const kernels::Adam::Push& adam, int degree) {
  constexpr uint32_t kInvocationsPerSplat = 4;
  const kernels::vec4& centre = renderer_.cameraCentre();
  stream_.dispatch1D(kernels::AdamSh{.value = &splats_.value(kShRest),
                                     .firstMoment = &splats_.firstMoment(kShRest),
                                     .secondMoment = &splats_.secondMoment(kShRest),
                                     .position = &splats_.value(kPositions),
                                     .dShDc = &splats_.gradient(kShDc)},
                     {.count = adam.count,
                      .rate = adam.rate,
                      .beta1 = adam.beta1,
                      .beta2 = adam.beta2,
                      .epsilon = adam.epsilon,
                      .correction1 = adam.correction1,
                      .rootCorrection2 = adam.rootCorrection2,
                      .centreX = centre[0],
                      .centreY = centre[1],
                      .centreZ = centre[2]},
                     adam.count * kInvocationsPerSplat, formatText("adam_sh:DEGREE=%d", degree));
}

void Trainer::refine() {
  if (finished()) return;
  strategy_->refine(state(), log_);
  renderer_.reserve(splats_.capacity(), 1, 1);
}

void Trainer::show(LiveScene& scene) {
  scene.offer(stream_, splats_, shDegreeAt(job_, step_));
}

GaussianSet Trainer::download() {
  GaussianSet set = splats_.download(transfer_);
  set.shDegree = job_.shDegree;
  return set;
}

CheckpointHeader Trainer::header() const {
  CheckpointHeader header;
  header.technique = job_.technique;
  header.step = static_cast<uint32_t>(step_);
  header.iterations = job_.iterations;
  header.shDegree = shDegreeAt(job_, step_);
  header.downscaleLevels = job_.downscaleLevels;
  header.stepsPerLevel = job_.stepsPerLevel;
  header.randomState = random_.state();
  header.seed = job_.seed;
  header.sceneExtent = static_cast<float>(dataset_.geometry.extent);
  header.count = splats_.count();
  strategy_->save(header);
  return header;
}

Checkpoint Trainer::checkpoint() {
  Checkpoint checkpoint{header(), splats_.download(transfer_), {}, {}};
  checkpoint.set.shDegree = checkpoint.header.shDegree;
  splats_.downloadMoments(transfer_, checkpoint.firstMoments, checkpoint.secondMoments);
  return checkpoint;
}

CheckpointHeader Trainer::checkpoint(SplatSnapshot& copy) {
  copy.take(stream_, splats_);
  return header();
}

EvalResult Trainer::evaluate(const std::atomic<bool>& cancel, const OnViewScored& each) {
  const RenderSettings settings = {shDegreeAt(job_, step_), nearPlane(), job_.background};
  return gs::evaluate(stream_, transfer_, renderer_, splats_, dataset_.heldOut, settings, cancel, each);
}

}  // namespace quor::gs
