#include "gs/train/strategy/mcmc_relocator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "gs/train/strategy/densification_edit.h"

namespace quor::gs {
namespace {

constexpr int kMaxCopies = 51;
constexpr double kDeadOpacity = 0.005;
constexpr double kMaxOpacity = 1.0 - 1e-6;

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

// Lets each row of `dead` become a copy of a row drawn, which shares its place with its copies.
void relocate(DensificationEdit& rows, const std::vector<size_t>& dead, const WeightedDraw& draw, SplitMix64& random) {
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

RelocateReport McmcRelocator::refine(ComputeStream& stream, Transfer& transfer, SplatStore& splats, SplitMix64& random,
                                     uint64_t wanted) const {
  RelocateReport report;
  DensificationEdit rows = DensificationEdit::download(transfer, splats);
  report.reset = resetDiverged(stream, transfer, splats, rows, 2 * static_cast<float>(kDeadOpacity), random);

  std::vector<size_t> dead;
  std::vector<double> weights(rows.count());
  for (size_t i = 0; i < rows.count(); ++i) {
    const double o = static_cast<double>(rows.opacity(i));
    if (o <= kDeadOpacity) {
      dead.push_back(i);
    } else {
      weights[i] = o;
    }
  }
  const WeightedDraw alive(weights);
  if (alive.possible()) {
    relocate(rows, dead, alive, random);
    report.relocated = dead.size();
    grow(rows, std::min(wanted, cap_), alive, random);
    report.grown = rows.count() - splats.count();
  }
  if (report.reset + report.relocated + report.grown > 0) rows.apply(stream, transfer, splats, cap_);
  return report;
}

}  // namespace quor::gs
