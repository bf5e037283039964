#include "gs/train/strategy/adaptive_density.h"

#include <algorithm>
#include <cmath>

#include "base/text/text.h"
#include "gs/data/seed.h"
#include "gs/train/kernels/interfaces.h"
#include "gs/train/schedule.h"
#include "gs/train/strategy/densification_edit.h"

namespace quor::gs {
namespace {

constexpr float kSeedOpacity = 0.1f;
// Of the scene extent; larger splats are pruned once opacities have been reset.
constexpr double kMaxSplatSize = 0.1;
// Of the scene extent: from this distance to the camera on, a splat's gradients count in full. The paper has 0.37;
// docs/quality.md compares both.
constexpr double kFullGradientDepth = 1.0;
// The threshold is meant for copies of the old opacity (Kerbl et al. 2023). Halves that share it share its gradient.
constexpr float kHalfGradient = 0.5f;

// The mean over the views that saw each splat.
std::vector<float> meanGradients(const DensificationEdit& rows) {
  if (rows.statistics.empty()) return std::vector<float>(rows.count(), 0.0f);
  std::vector<float> mean = rows.statistics[0];
  const std::vector<float>& views = rows.statistics[1];
  for (size_t i = 0; i < mean.size(); ++i) {
    mean[i] = std::isfinite(mean[i]) && views[i] > 0 ? mean[i] / views[i] : 0.0f;
  }
  return mean;
}

}  // namespace

std::vector<std::string> AdaptiveDensity::kernels() const {
  return {"gather_rows", "flag_diverged", "weigh_near_gradients", "grad_stats"};
}

Strategy::Seeds AdaptiveDensity::seeds(uint64_t points) const {
  return {std::min(cap_, automaticSeeds(points)), kSeedOpacity};
}

uint64_t AdaptiveDensity::roomFor(uint64_t count) const {
  return grownCapacity(count, 0, cap_);
}

Strategy::Rates AdaptiveDensity::rates(int stepsDone) const {
  const double position = exponentialRate(static_cast<double>(job_.positionRateStart),
                                          static_cast<double>(job_.positionRateEnd), stepsDone, job_.iterations);
  return {position * extent_, job_.opacityRate};
}

void AdaptiveDensity::afterBackward(const TrainingState& state) {
  if (state.stepsDone >= job_.densifyUntil) return;
  const SplatStore& splats = state.splats;
  const Renderer& renderer = state.renderer;
  const uint64_t bytes = splats.capacity() * sizeof(float);
  if (sum_.size() < bytes) {
    sum_ = GpuBuffer(splats.context(), bytes, BufferKind::Device, "gradient sums");
    views_ = GpuBuffer(splats.context(), bytes, BufferKind::Device, "gradient views");
    startOver_ = true;
  }
  const uint32_t n = splats.count();
  const GpuBuffer& dMean = renderer.screenMeanGradient();
  state.stream.dispatch1D(kernels::WeighNearGradients{.dMean = &dMean, .depth = &renderer.depths()},
                          {n, static_cast<float>(kFullGradientDepth * extent_)}, n);
  state.stream.dispatch1D(
      kernels::GradStats{.dMean = &dMean, .visible = &renderer.visible(), .sum = &sum_, .views = &views_},
      {.count = n,
       .startOver = startOver_ ? 1u : 0u,
       .halfWidth = 0.5f * static_cast<float>(renderer.width()),
       .halfHeight = 0.5f * static_cast<float>(renderer.height())},
      n);
  startOver_ = false;
}

void AdaptiveDensity::refine(const TrainingState& state, LogStore& log) {
  const int step = state.stepsDone;
  if (densifiesAt(job_, step)) {
    const DensifyReport report = densify(state, opacitiesWereReset_);
    log.info(passLine(step, report.reset) +
             formatText("%llu cloned, %llu split, %llu pruned -> %u splats",
                        static_cast<unsigned long long>(report.cloned), static_cast<unsigned long long>(report.split),
                        static_cast<unsigned long long>(report.pruned), state.splats.count()));
  }
  if (resetsOpacitiesAt(job_, step)) {
    resetOpacities(state);
    opacitiesWereReset_ = true;
  }
}

void AdaptiveDensity::restore(const CheckpointHeader& header) {
  Strategy::restore(header);
  opacitiesWereReset_ = opacitiesWereReset(job_, header);
}

bool AdaptiveDensity::nothingAccumulated(int stepsDone) const {
  return stepsDone >= job_.densifyUntil || startOver_;
}

// Splats over the threshold; when there is no room for all, those with the largest statistic.
std::vector<size_t> AdaptiveDensity::candidates(const std::vector<bool>& keep,
                                                const std::vector<float>& statistic) const {
  std::vector<size_t> chosen;
  uint64_t kept = 0;
  for (size_t i = 0; i < keep.size(); ++i) {
    if (!keep[i]) continue;
    ++kept;
    if (statistic[i] > kHalfGradient * job_.densifyGradient) chosen.push_back(i);
  }
  const uint64_t room = cap_ > kept ? cap_ - kept : 0;
  if (chosen.size() <= room) return chosen;
  const auto last = chosen.begin() + static_cast<ptrdiff_t>(room);
  std::nth_element(chosen.begin(), last, chosen.end(), [&](size_t a, size_t b) { return statistic[a] > statistic[b]; });
  chosen.erase(last, chosen.end());
  std::sort(chosen.begin(), chosen.end());
  return chosen;
}

DensifyReport AdaptiveDensity::densify(const TrainingState& state, bool pruneLarge) {
  DensifyReport report;
  const BufferRef statistics[] = {&sum_, &views_};
  DensificationEdit rows = DensificationEdit::fetch(state.stream, state.splats, staging_,
                                                    startOver_ ? std::span<const BufferRef>() : std::span(statistics));
  const size_t n = rows.count();
  const std::vector<float> statistic = meanGradients(rows);
  report.reset = rows.resetDiverged(2 * job_.pruneOpacity, state.random);

  std::vector<bool> keep(n);
  for (size_t i = 0; i < n; ++i) {
    const bool tooLarge = pruneLarge && rows.largestScale(i) > kMaxSplatSize * extent_;
    keep[i] = rows.opacity(i) >= job_.pruneOpacity && !tooLarge;
  }
  const std::vector<size_t> chosen = candidates(keep, statistic);
  report.pruned = static_cast<uint64_t>(std::count(keep.begin(), keep.end(), false));
  if (report.pruned == n) {  // never an empty scene: the most opaque splat stays
    const auto best = std::max_element(rows.opacities.begin(), rows.opacities.end()) - rows.opacities.begin();
    keep[static_cast<size_t>(best)] = true;
    --report.pruned;
  }

  for (const size_t i : chosen) {
    ++(rows.largestScale(i) <= job_.denseFraction * extent_ ? report.cloned : report.split);
    rows.makeFresh(i);
    rows.splitLongAxis(i);
  }
  keep.resize(rows.count(), true);
  rows.keepOnly(keep);
  rows.apply(state.stream, state.transfer, state.splats, cap_);
  startOver_ = true;
  return report;
}

void AdaptiveDensity::resetOpacities(const TrainingState& state) {
  const float most = 2 * job_.pruneOpacity;
  const float limit = std::log(most / (1.0f - most));
  std::vector<float> opacities = state.splats.downloadGroup(state.transfer, kOpacities);
  for (float& value : opacities) value = std::min(value, limit);
  state.splats.uploadGroup(state.transfer, kOpacities, opacities);
  state.splats.clearMoments(state.transfer, kOpacities);
}

bool densifiesAt(const TrainJob& job, int step) {
  return isEvery(step, job.refineEvery) && step >= job.densifyFrom && step <= job.densifyUntil;
}

bool resetsOpacitiesAt(const TrainJob& job, int step) {
  return isEvery(step, job.opacityResetEvery) && step + job.opacityResetEvery / 3 <= job.densifyUntil;
}

// By the iterations that the earlier run had: a run of another length may have had its resets at other steps.
bool opacitiesWereReset(const TrainJob& job, const CheckpointHeader& header) {
  TrainJob automatic = job;
  automatic.densifyUntil = 0;
  TrainJob earlier = job;
  if (resolved(automatic).densifyUntil == job.densifyUntil) earlier.densifyUntil = 0;
  earlier.iterations = header.iterations;
  const int first = job.opacityResetEvery;
  return resetsOpacitiesAt(resolved(earlier), first) && static_cast<int64_t>(first) <= header.step;
}

}  // namespace quor::gs
