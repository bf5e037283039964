#include "sfm/georeference/similarity.h"

#include <Eigen/Eigenvalues>
#include <Eigen/SVD>
#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numeric>

#include "base/split_mix64.h"

namespace quor {
namespace {

constexpr int kSamples = 600;  // at 45 % of outliers 100 of the triples are free of them
constexpr int kReweightings = 30;
constexpr double kMedianNorm = 1.538;  // of a normal vector of three dimensions, in standard deviations
constexpr double kTukey = 4.685;       // standard deviations at which a weight reaches 0

Eigen::Vector3d weightedMean(const Places& places, const std::vector<double>& weights) {
  Eigen::Vector3d sum = Eigen::Vector3d::Zero();
  for (size_t i = 0; i < places.size(); ++i) sum += weights[i] * places[i];
  return sum / std::accumulate(weights.begin(), weights.end(), 0.0);
}

bool isFinite(const Similarity& similarity) {
  return std::isfinite(similarity.scale) && similarity.scale > 0 && similarity.rotation.allFinite() &&
         similarity.shift.allFinite();
}

std::vector<double> residualsOf(const Similarity& similarity, const Places& from, const Places& to) {
  std::vector<double> residuals(from.size());
  for (size_t i = 0; i < from.size(); ++i) residuals[i] = (similarity(from[i]) - to[i]).norm();
  return residuals;
}

// The first `count` of the indices become a random selection.
void draw(std::vector<size_t>& indices, size_t count, SplitMix64& random) {
  for (size_t i = 0; i < count; ++i) std::swap(indices[i], indices[i + random.below(indices.size() - i)]);
}

std::optional<Similarity> leastMedian(const Places& from, const Places& to, const SimilarityFit& fit,
                                      size_t sampleSize) {
  SplitMix64 random = SplitMix64::fromSeed(0);
  std::vector<size_t> indices(from.size());
  std::iota(indices.begin(), indices.end(), size_t{0});
  const std::vector<double> equal(sampleSize, 1.0);
  std::optional<Similarity> best;
  double least = std::numeric_limits<double>::infinity();
  Places someFrom(sampleSize), someTo(sampleSize);
  for (int sample = 0; sample < kSamples; ++sample) {
    draw(indices, sampleSize, random);
    for (size_t k = 0; k < sampleSize; ++k) {
      someFrom[k] = from[indices[k]];
      someTo[k] = to[indices[k]];
    }
    const Similarity candidate = fit(someFrom, someTo, equal);
    if (!isFinite(candidate)) continue;
    const double median = quantile(residualsOf(candidate, from, to), 0.5);
    if (median >= least) continue;
    least = median;
    best = candidate;
  }
  return best;
}

std::vector<double> tukeyWeights(const std::vector<double>& residuals, double floor) {
  const double reach = std::max(kTukey * quantile(residuals, 0.5) / kMedianNorm, floor);
  std::vector<double> weights;
  for (const double residual : residuals) {
    const double part = residual / reach;
    weights.push_back(part < 1 ? (1 - part * part) * (1 - part * part) : 0);
  }
  return weights;
}

}  // namespace

Similarity fitSimilarity(const Places& from, const Places& to, const std::vector<double>& weights) {
  const Eigen::Vector3d fromMean = weightedMean(from, weights), toMean = weightedMean(to, weights);
  Eigen::Matrix3d covariance = Eigen::Matrix3d::Zero();
  double variance = 0;
  for (size_t i = 0; i < from.size(); ++i) {
    const Eigen::Vector3d centred = from[i] - fromMean;
    covariance += weights[i] * (to[i] - toMean) * centred.transpose();
    variance += weights[i] * centred.squaredNorm();
  }
  const Eigen::JacobiSVD<Eigen::Matrix3d> svd(covariance, Eigen::ComputeFullU | Eigen::ComputeFullV);
  Eigen::Vector3d signs = Eigen::Vector3d::Ones();
  if (svd.matrixU().determinant() * svd.matrixV().determinant() < 0) signs.z() = -1;  // a mirror image is no rotation
  Similarity similarity;
  similarity.rotation = svd.matrixU() * signs.asDiagonal() * svd.matrixV().transpose();
  similarity.scale = svd.singularValues().dot(signs) / variance;
  similarity.shift = toMean - similarity.scale * (similarity.rotation * fromMean);
  return similarity;
}

Similarity fitLevelSimilarity(const Places& from, const Places& to, const std::vector<double>& weights) {
  const Eigen::Vector3d fromMean = weightedMean(from, weights), toMean = weightedMean(to, weights);
  std::complex<double> turn = 0;
  double variance = 0;
  for (size_t i = 0; i < from.size(); ++i) {
    const Eigen::Vector3d a = from[i] - fromMean, b = to[i] - toMean;
    turn += weights[i] * std::conj(std::complex(a.x(), a.y())) * std::complex(b.x(), b.y());
    variance += weights[i] * std::norm(std::complex(a.x(), a.y()));
  }
  const std::complex<double> unit = turn / std::abs(turn);
  Similarity similarity;
  similarity.scale = std::abs(turn) / variance;
  similarity.rotation << unit.real(), -unit.imag(), 0, unit.imag(), unit.real(), 0, 0, 0, 1;
  similarity.shift = toMean - similarity.scale * (similarity.rotation * fromMean);
  return similarity;
}

std::optional<RobustSimilarity> fitRobustly(const Places& from, const Places& to, const SimilarityFit& fit,
                                            size_t sampleSize, double floor) {
  if (from.size() < sampleSize) return std::nullopt;
  const std::optional<Similarity> start = leastMedian(from, to, fit, sampleSize);
  if (!start) return std::nullopt;
  RobustSimilarity result{*start, {}, residualsOf(*start, from, to)};
  result.weights = tukeyWeights(result.residuals, floor);
  for (int i = 0; i < kReweightings; ++i) {
    const Similarity next = fit(from, to, result.weights);
    if (!isFinite(next)) break;
    result.similarity = next;
    result.residuals = residualsOf(next, from, to);
    result.weights = tukeyWeights(result.residuals, floor);
  }
  return result;
}

Eigen::Vector3d principalSpreads(const Places& places, const std::vector<double>& weights) {
  const Eigen::Vector3d mean = weightedMean(places, weights);
  Eigen::Matrix3d covariance = Eigen::Matrix3d::Zero();
  for (size_t i = 0; i < places.size(); ++i) {
    covariance += weights[i] * (places[i] - mean) * (places[i] - mean).transpose();
  }
  covariance /= std::accumulate(weights.begin(), weights.end(), 0.0);
  const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(covariance, Eigen::EigenvaluesOnly);
  return solver.eigenvalues().reverse().cwiseMax(0).cwiseSqrt();
}

double quantile(std::vector<double> values, double fraction) {
  const auto at = static_cast<std::ptrdiff_t>(fraction * static_cast<double>(values.size() - 1) + 0.5);
  std::nth_element(values.begin(), values.begin() + at, values.end());
  return values[static_cast<size_t>(at)];
}

}  // namespace quor
