#include "gs/train/trainer.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "base/text/text.h"
#include "gpu/device/vulkan_context.h"
#include "gs/data/seed.h"
#include "gs/render/blend_trial.h"
#include "gs/splats/splat_cap.h"
#include "gs/train/kernels/interfaces.h"
#include "gs/train/resume.h"
#include "gs/train/schedule.h"
#include "gs/train/strategy/densification_edit.h"

namespace quor::gs {
namespace {

// Of the scene extent: what is nearer to a camera than this is not drawn.
constexpr double kNearPlane = 0.01;
// A solve with fewer points than this says nothing of the scene: so many random splats start it instead.
constexpr uint64_t kFewPoints = 100, kRandomSplats = 10000;
constexpr float kVanillaSeedOpacity = 0.1f;
constexpr float kMcmcSeedOpacity = 0.11920292f;  // 1 / (1 + e^2)
constexpr double kBeta1 = 0.9, kBeta2 = 0.999;
constexpr float kEpsilon = 1e-15f;
// The loss shown: how much of the average each new value replaces, and how often one is taken.
constexpr float kLossAverage = 0.1f;
constexpr int kLossEvery = 10;
// Photographs may take this share of the free GPU memory; more of them stay in host memory.
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

// Room for photographs and images, then as many splats as the budget and the device allow.
SplatCap capFor(const VulkanContext& context, const TrainJob& job, const Dataset& dataset) {
  const uint64_t photos = std::min(dataset.imageBytes(), photoShare(context));
  // Who looks on has a copy and a renderer of its own.
  const uint64_t besides = job.liveView ? kLiveBytesPerSplat + kRendererBytesPerSplat : 0;
  return splatCap(deviceLimits(context), job.splatBudget, photos + largestPixels(dataset) * kRendererBytesPerPixel,
                  besides);
}

// The cap's number, with its reason in the log.
uint64_t sayCap(const SplatCap& cap, LogStore& log) {
  log.info(cap.reason);
  return cap.splats;
}

}  // namespace

Trainer::Trainer(VulkanContext& context, KernelRegistry& registry, LogStore& log, const TrainJob& job,
                 const Dataset& dataset)
    : log_(log),
      job_(job),
      dataset_(dataset),
      stream_(context, registry),
      transfer_(context),
      splats_(context, SplatStore::Use::Training),
      renderer_(context, variantsByTrial(context, registry, log), Renderer::Mode::Training),
      photos_(context, dataset.training, photoShare(context), scaledPool(dataset)),
      random_(SplitMix64::fromSeed(job.seed)),
      cap_(sayCap(capFor(context, job, dataset), log)),
      mcmcTarget_(std::min(job.mcmcTarget, cap_)),
      vanilla_(context, job_, dataset.geometry.extent, cap_),
      mcmc_(cap_),
      order_(job.seed, static_cast<uint32_t>(dataset.training.size())),
      loss_(std::numeric_limits<float>::quiet_NaN()) {
  std::vector<std::string> kernels = renderer_.kernelNames();
  for (const char* name : {"adam_quads", "gather_rows", "flag_diverged"}) kernels.emplace_back(name);
  if (job_.technique == Technique::Vanilla) {
    for (const char* name : {"weigh_near_gradients", "grad_stats"}) kernels.emplace_back(name);
  } else {
    kernels.emplace_back("add_noise");
  }
  registry.prepare(kernels);
}

void Trainer::start() {
  const bool mcmc = job_.technique == Technique::Mcmc;
  SeedSettings settings;
  settings.opacity = mcmc ? kMcmcSeedOpacity : kVanillaSeedOpacity;
  settings.centre = dataset_.geometry.centre;
  settings.extent = dataset_.geometry.extent;
  const uint64_t points = dataset_.points.count();
  if (points < kFewPoints) {
    log_.warning(formatText("The COLMAP model has too few points to start from (%llu): splats start at random places.",
                            static_cast<unsigned long long>(points)));
  }
  settings.count = mcmc && job_.splatBudget > 0 ? cap_ : std::min(cap_, points < kFewPoints ? kRandomSplats : points);
  const GaussianSet seeded = seedFromPoints(dataset_.points.positions, dataset_.points.colors, settings, random_);
  const uint64_t toCome = mcmc ? std::max(seeded.count, mcmcTarget_) : grownCapacity(seeded.count, 0, cap_);
  splats_.upload(transfer_, seeded, static_cast<uint32_t>(toCome));
  prepare();
}

void Trainer::resume(const Checkpoint& checkpoint) {
  const CheckpointHeader& header = checkpoint.header;
  requireContinuable(job_, header);
  requireSameScene(header, dataset_.geometry.extent);
  step_ = static_cast<int>(header.step);
  random_ = SplitMix64(header.randomState);
  cap_ = std::max(cap_, header.count);
  vanilla_.setCap(cap_);
  mcmc_.setCap(cap_);
  if (job_.technique == Technique::Mcmc) mcmcTarget_ = std::min(mcmcTarget_, header.mcmcTarget);
  opacitiesWereReset_ = opacitiesWereReset(job_, header);

  const uint64_t toCome =
      job_.technique == Technique::Mcmc ? std::max(header.count, mcmcTarget_) : grownCapacity(header.count, 0, cap_);
  splats_.upload(transfer_, checkpoint.set, static_cast<uint32_t>(toCome));
  splats_.uploadMoments(transfer_, checkpoint.firstMoments, checkpoint.secondMoments);
  prepare();
  log_.info(formatText("Continuing from the checkpoint at step %u (%llu splats) towards %d", header.step,
                       static_cast<unsigned long long>(header.count), job_.iterations));
}

void Trainer::prepare() {
  renderer_.reserve(splats_.capacity(), 1, 1);
  applyLevel();
}

// Photographs and buffers for the level of the next step.
void Trainer::applyLevel() {
  if (!photos_.setLevel(transfer_, levelAt(job_, step_))) return;
  for (size_t i = 0; i < photos_.count(); ++i) {
    renderer_.reserve(splats_.count(), photos_.camera(i).width, photos_.camera(i).height);
  }
}

Renderer::Regularisers Trainer::regularisers() const {
  if (job_.technique == Technique::Vanilla) return {};
  const float n = static_cast<float>(std::max(splats_.count(), 1u));
  const float extent = static_cast<float>(dataset_.geometry.extent);  // a scene has no unit of its own
  return {job_.mcmcOpacityRegulariser / n, job_.mcmcScaleRegulariser / (3.0f * n * extent)};
}

void Trainer::step() {
  applyLevel();
  const uint64_t done = static_cast<uint64_t>(step_);
  const size_t view = order_.at(done);
  const size_t nextView = order_.at(done + 1);
  const bool scored = step_ % kLossEvery == 0 || std::isnan(loss_);
  const float nearPlane = static_cast<float>(kNearPlane * dataset_.geometry.extent);

  stream_.mark("photograph");
  const GpuBuffer& photo = photos_.fetch(stream_, view);
  renderer_.project(stream_, splats_, photos_.camera(view), shDegreeAt(job_, step_), nearPlane);
  photos_.prefetch(nextView);
  renderer_.rasterize(stream_, job_.background);
  renderer_.lossAndBackward(stream_, splats_, photo, lossScales(job_.ssimWeight, renderer_.width(), renderer_.height()),
                            regularisers(), scored);
  if (job_.technique == Technique::Vanilla && step_ < job_.densifyUntil) {
    vanilla_.accumulate(stream_, splats_, renderer_);
  }
  optimise();
  if (job_.technique == Technique::Mcmc) addNoise();
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
  std::array<float, kGroupCount> rates{};
  rates[kPositions] = static_cast<float>(positionRate(job_, step_, dataset_.geometry.extent));
  rates[kScales] = job_.scaleRate;
  rates[kRotations] = job_.rotationRate;
  rates[kOpacities] = opacityRate(job_, step_);
  rates[kShDc] = job_.shDcRate;
  rates[kShRest] = job_.shRestDivisor > 0 ? job_.shDcRate / job_.shRestDivisor : 0.0f;
  const float correction1 = static_cast<float>(1.0 - std::pow(kBeta1, t));
  const float rootCorrection2 = static_cast<float>(std::sqrt(1.0 - std::pow(kBeta2, t)));
  for (size_t i = 0; i < kGroupCount; ++i) {
    const Group g = static_cast<Group>(i);
    // At degree 0 these have neither gradients nor moments: the update would change nothing.
    if (g == kShRest && shDegreeAt(job_, step_) == 0) continue;
    const uint32_t count = splats_.count() * static_cast<uint32_t>(kGroupWidths[g]);
    stream_.dispatch1D(kernels::Adam{.value = &splats_.value(g),
                                     .firstMoment = &splats_.firstMoment(g),
                                     .secondMoment = &splats_.secondMoment(g),
                                     .gradient = &splats_.gradient(g)},
                       {.count = count,
                        .rate = rates[g],
                        .beta1 = static_cast<float>(kBeta1),
                        .beta2 = static_cast<float>(kBeta2),
                        .epsilon = kEpsilon,
                        .correction1 = correction1,
                        .rootCorrection2 = rootCorrection2},
                       (count + 3) / 4, "adam_quads");
  }
}

void Trainer::addNoise() {
  const uint64_t bits = random_.next();
  const double scale = positionRate(job_, step_, dataset_.geometry.extent) * static_cast<double>(job_.mcmcNoiseScale);
  stream_.dispatch1D(kernels::AddNoise{.position = &splats_.value(kPositions),
                                       .scale = &renderer_.activatedScales(),
                                       .rotation = &splats_.value(kRotations),
                                       .opacity = &renderer_.activatedOpacities()},
                     {.count = splats_.count(),
                      .seed0 = static_cast<uint32_t>(bits),
                      .seed1 = static_cast<uint32_t>(bits >> 32),
                      .seed2 = static_cast<uint32_t>(step_),
                      .noiseScale = static_cast<float>(scale)},
                     splats_.count());
}

void Trainer::refine() {
  if (finished()) return;
  if (job_.technique == Technique::Vanilla) {
    refineVanilla();
  } else {
    refineMcmc();
  }
  renderer_.reserve(splats_.capacity(), 1, 1);
}

void Trainer::refineVanilla() {
  if (isVanillaRefineStep(job_, step_)) {
    const DensifyReport report = vanilla_.refine(stream_, transfer_, splats_, random_, opacitiesWereReset_);
    std::string text = formatText("step %d: ", step_);
    if (report.reset > 0)
      text += formatText("reset %llu diverged splats, ", static_cast<unsigned long long>(report.reset));
    log_.info(text + formatText("%llu cloned, %llu split, %llu pruned -> %u splats",
                                static_cast<unsigned long long>(report.cloned),
                                static_cast<unsigned long long>(report.split),
                                static_cast<unsigned long long>(report.pruned), splats_.count()));
  }
  if (isOpacityResetStep(job_, step_)) {
    vanilla_.resetOpacities(transfer_, splats_);
    opacitiesWereReset_ = true;
  }
}

void Trainer::refineMcmc() {
  if (!isMcmcRelocateStep(job_, step_)) return;
  const RelocateReport report =
      mcmc_.refine(stream_, transfer_, splats_, random_, mcmcCountAfter(job_, step_, splats_.count(), mcmcTarget_));
  std::string text = formatText("step %d: ", step_);
  if (report.reset > 0)
    text += formatText("reset %llu diverged splats, ", static_cast<unsigned long long>(report.reset));
  log_.info(text + formatText("%llu relocated, %llu added -> %u splats",
                              static_cast<unsigned long long>(report.relocated),
                              static_cast<unsigned long long>(report.grown), splats_.count()));
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
  header.capacity = cap_;
  header.mcmcTarget = job_.technique == Technique::Mcmc ? mcmcTarget_ : 0;
  header.randomState = random_.state();
  header.seed = job_.seed;
  header.sceneExtent = static_cast<float>(dataset_.geometry.extent);
  header.count = splats_.count();
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

bool Trainer::nothingAccumulated() const {
  return job_.technique == Technique::Mcmc || step_ >= job_.densifyUntil || !vanilla_.accumulated();
}

EvalResult Trainer::evaluate(const std::atomic<bool>& cancel, const OnViewScored& each) {
  const RenderSettings settings = {shDegreeAt(job_, step_), static_cast<float>(kNearPlane * dataset_.geometry.extent),
                                   job_.background};
  return gs::evaluate(stream_, transfer_, renderer_, splats_, dataset_.heldOut, settings, cancel, each);
}

}  // namespace quor::gs
