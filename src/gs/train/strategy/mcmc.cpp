#include "gs/train/strategy/mcmc.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "base/text/text.h"
#include "gs/data/seed.h"
#include "gs/train/kernels/interfaces.h"
#include "gs/train/schedule.h"
#include "gs/train/strategy/densification_edit.h"

namespace quor::gs {
namespace {

constexpr float kSeedOpacity = 0.11920292f;  // 1 / (1 + e^2)
constexpr int kMaxCopies = 51;
constexpr double kDeadOpacity = 0.005;
constexpr double kMaxOpacity = 1.0 - 1e-6;
// Of the splats there are, in one pass.
constexpr double kMinGrowth = 0.05, kMaxGrowth = 0.15;

// The scene extent at which the job's noise scale is the published one: what COLMAP gives to a walk around an object.
constexpr double kNoiseExtent = 6;

using Binomials = std::array<std::array<double, kMaxCopies>, kMaxCopies>;

constexpr Binomials makeBinomials() {
  Binomials table{};
  for (size_t n = 0; n < table.size(); ++n) {
    table[n][0] = 1;
    for (size_t k = 1; k <= n; ++k) table[n][k] = table[n - 1][k - 1] + (k < n ? table[n - 1][k] : 0.0);
  }
  return table;
}
constexpr Binomials kBinomials = makeBinomials();

// Draws indices with probability proportional to a weight.
class WeightedDraw {
 public:
  explicit WeightedDraw(const std::vector<double>& weights) : sums_(weights.size()) {
    double sum = 0;
    for (size_t i = 0; i < weights.size(); ++i) sums_[i] = sum += weights[i];
  }
  bool possible() const { return !sums_.empty() && sums_.back() > 0; }
  size_t draw(SplitMix64& random) const {
    const auto at = std::upper_bound(sums_.begin(), sums_.end(), random.uniform() * sums_.back());
    return std::min(static_cast<size_t>(at - sums_.begin()), sums_.size() - 1);
  }

 private:
  std::vector<double> sums_;
};

// Turns each row of `dead` into a copy of a row drawn, which shares its place with its copies.
void moveDead(DensificationEdit& rows, const std::vector<size_t>& dead, const WeightedDraw& draw, SplitMix64& random) {
  std::vector<size_t> chosen(dead.size());
  for (size_t& i : chosen) i = draw.draw(random);
  std::vector<int> copies(rows.count(), 1);
  for (const size_t i : chosen) ++copies[i];
  for (const size_t i : chosen) {
    if (copies[i] == 1) continue;  // done at its first appearance
    const SharedSplat shared = shareSplat(static_cast<double>(rows.opacity(i)), copies[i]);
    rows.setOpacity(i, static_cast<float>(shared.opacity));
    for (size_t k = 0; k < 3; ++k) rows.scales[3 * i + k] += static_cast<float>(std::log(shared.scaleFactor));
    rows.makeFresh(i);
    copies[i] = 1;
  }
  for (size_t c = 0; c < dead.size(); ++c) rows.copyOver(dead[c], chosen[c]);
}

// Splits rows drawn until there are `count`.
void grow(DensificationEdit& rows, uint64_t count, const WeightedDraw& draw, SplitMix64& random) {
  while (rows.count() < count) {
    const size_t i = draw.draw(random);
    rows.makeFresh(i);
    rows.splitLongAxis(i);
  }
}

}  // namespace

SharedSplat shareSplat(double opacity, int copies) {
  const int n = std::clamp(copies, 1, kMaxCopies);
  const double o = std::clamp(opacity, kDeadOpacity, kMaxOpacity);
  const double shared = 1.0 - std::pow(1.0 - o, 1.0 / n);
  double sum = 0;
  for (int i = 1; i <= n; ++i) {
    double power = shared;
    for (int k = 0; k < i; ++k) {
      const double sign = k % 2 == 0 ? 1.0 : -1.0;
      sum += sign * kBinomials[static_cast<size_t>(i - 1)][static_cast<size_t>(k)] * power / std::sqrt(k + 1.0);
      power *= shared;
    }
  }
  return {std::clamp(shared, kDeadOpacity, kMaxOpacity), o / sum};
}

Mcmc::Mcmc(const TrainJob& job, double extent, uint64_t cap)
    : Strategy(job, extent, cap), target_(std::min(job.mcmcTarget, cap)) {}

std::vector<std::string> Mcmc::kernels() const {
  return {"gather_rows", "flag_diverged", "add_noise"};
}

Strategy::Seeds Mcmc::seeds(uint64_t points) const {
  return {job_.splatBudget > 0 ? cap_ : std::min(cap_, automaticSeeds(points)), kSeedOpacity};
}

uint64_t Mcmc::roomFor(uint64_t count) const {
  return std::max(count, target_);
}

// Opacities learn ever more slowly: splats find theirs early, and the relocation near the end is not drowned by the
// optimiser.
Strategy::Rates Mcmc::rates(int stepsDone) const {
  const double position = exponentialRate(static_cast<double>(job_.mcmcPositionRateStart),
                                          static_cast<double>(job_.mcmcPositionRateEnd), stepsDone, job_.iterations);
  const double opacity = exponentialRate(static_cast<double>(job_.opacityRate),
                                         static_cast<double>(job_.mcmcOpacityRateEnd), stepsDone, job_.iterations);
  return {position * extent_, static_cast<float>(opacity)};
}

// Scales are weighed in units of the scene extent: a scene has no unit of its own.
Renderer::Regularisers Mcmc::regularisers(uint32_t splats) const {
  const float n = static_cast<float>(std::max(splats, 1u));
  return {job_.mcmcOpacityRegulariser / n, job_.mcmcScaleRegulariser / (3.0f * n * static_cast<float>(extent_))};
}

// The kernel multiplies by the covariance, in squared world units, and the position rate is in world units: over the
// squared extent, the noise is a length that grows with the scene as everything else does.
void Mcmc::afterOptimiser(const TrainingState& state) {
  const uint64_t bits = state.random.next();
  const double scale = rates(state.stepsDone).position * static_cast<double>(job_.mcmcNoiseScale) *
                       (kNoiseExtent * kNoiseExtent) / (extent_ * extent_);
  state.stream.dispatch1D(kernels::AddNoise{.position = &state.splats.value(kPositions),
                                            .scale = &state.renderer.activatedScales(),
                                            .rotation = &state.splats.value(kRotations),
                                            .opacity = &state.renderer.activatedOpacities()},
                          {.count = state.splats.count(),
                           .seed0 = static_cast<uint32_t>(bits),
                           .seed1 = static_cast<uint32_t>(bits >> 32),
                           .seed2 = static_cast<uint32_t>(state.stepsDone),
                           .noiseScale = static_cast<float>(scale)},
                          state.splats.count());
}

void Mcmc::refine(const TrainingState& state, LogStore& log) {
  const int step = state.stepsDone;
  if (!relocatesAt(step)) return;
  const RelocateReport report = relocate(state, countAfter(step, state.splats.count()));
  log.info(passLine(step, report.reset) +
           formatText("%llu relocated, %llu added -> %u splats", static_cast<unsigned long long>(report.relocated),
                      static_cast<unsigned long long>(report.grown), state.splats.count()));
}

void Mcmc::save(CheckpointHeader& header) const {
  Strategy::save(header);
  header.mcmcTarget = target_;
}

void Mcmc::restore(const CheckpointHeader& header) {
  Strategy::restore(header);
  target_ = std::min(target_, header.mcmcTarget);
}

RelocateReport Mcmc::relocate(const TrainingState& state, uint64_t wanted) {
  RelocateReport report;
  DensificationEdit rows = DensificationEdit::fetch(state.stream, state.splats, staging_);
  const size_t before = rows.count();
  report.reset = rows.resetDiverged(2 * static_cast<float>(kDeadOpacity), state.random);

  std::vector<size_t> dead;
  std::vector<double> weights(before);
  for (size_t i = 0; i < before; ++i) {
    const double o = static_cast<double>(rows.opacity(i));
    if (o <= kDeadOpacity) {
      dead.push_back(i);
    } else {
      weights[i] = o;
    }
  }
  const WeightedDraw alive(weights);
  if (alive.possible()) {
    moveDead(rows, dead, alive, state.random);
    report.relocated = dead.size();
    grow(rows, std::min(wanted, cap_), alive, state.random);
    report.grown = rows.count() - before;
  }
  if (report.reset + report.relocated + report.grown > 0) {
    rows.apply(state.stream, state.transfer, state.splats, cap_);
  }
  return report;
}

long Mcmc::fractionOf(float fraction) const {
  return std::lround(static_cast<double>(fraction) * job_.iterations);
}

bool Mcmc::relocatesAt(int step) const {
  return isEvery(step, job_.refineEvery) && step >= job_.densifyFrom && step <= fractionOf(job_.mcmcRelocateUntil);
}

bool Mcmc::growsAt(int step) const {
  return relocatesAt(step) && step <= fractionOf(job_.mcmcGrowUntil);
}

uint64_t Mcmc::countAfter(int step, uint64_t count) const {
  if (!growsAt(step) || count == 0 || count >= target_) return count;
  const long passesLeft = (fractionOf(job_.mcmcGrowUntil) - step) / job_.refineEvery + 1;
  const double needed =
      std::pow(static_cast<double>(target_) / static_cast<double>(count), 1.0 / static_cast<double>(passesLeft)) - 1;
  const double growth = std::clamp(needed, kMinGrowth, kMaxGrowth) * static_cast<double>(count);
  return std::min(target_, count + static_cast<uint64_t>(std::ceil(growth)));
}

}  // namespace quor::gs
