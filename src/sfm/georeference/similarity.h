// Similarities between two sets of places: a least-squares fit, and one that outliers do not move.
#pragma once

#include <Eigen/Core>
#include <functional>
#include <optional>
#include <vector>

namespace quor {

using Places = std::vector<Eigen::Vector3d>;

struct Similarity {
  double scale = 1;
  Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
  Eigen::Vector3d shift = Eigen::Vector3d::Zero();

  Eigen::Vector3d operator()(const Eigen::Vector3d& place) const { return scale * (rotation * place) + shift; }
};

// Fits to = similarity(from) with a weight for each pair. What it makes of too few or coinciding places is not finite.
using SimilarityFit =
    std::function<Similarity(const Places& from, const Places& to, const std::vector<double>& weights)>;

// Least squares over scale, rotation and shift (Umeyama 1991, "Least-squares estimation of transformation parameters
// between two point patterns"). Needs three places that are not on one line.
Similarity fitSimilarity(const Places& from, const Places& to, const std::vector<double>& weights);

// The same where both frames have z up already: turns about z only, and takes the scale from the horizontal, where
// satellite positions are better. Needs two places that differ in the horizontal.
Similarity fitLevelSimilarity(const Places& from, const Places& to, const std::vector<double>& weights);

struct RobustSimilarity {
  Similarity similarity;
  std::vector<double> weights;    // 0 for outliers, up to 1
  std::vector<double> residuals;  // distances in the frame of `to`
};

// The similarity that most pairs agree on, though nearly half of them may be wrong: the sample of `sampleSize` pairs
// with the least median residual (Rousseeuw 1984), then reweighted least squares with Tukey's weights. Residuals up to
// `floor` never count against a pair. Deterministic. Nothing when no sample gives a finite fit.
std::optional<RobustSimilarity> fitRobustly(const Places& from, const Places& to, const SimilarityFit& fit,
                                            size_t sampleSize, double floor);

// Root mean square extents along the principal axes, the largest first.
Eigen::Vector3d principalSpreads(const Places& places, const std::vector<double>& weights);

// The value that the given fraction of the values do not exceed; `values` must not be empty.
double quantile(std::vector<double> values, double fraction);

}  // namespace quor
