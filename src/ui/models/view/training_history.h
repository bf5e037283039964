// How a training run has gone so far, for the graphs: loss, number of splats and time a step over the steps, in bounded
// memory whatever the length of the run. When it is full, neighbours are joined and from then on points lie twice as
// far apart. The interface's thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "gs/train/train_job.h"

namespace quor::ui {

enum class Curve { Loss, Splats, Milliseconds };
inline constexpr size_t kCurveCount = 3;

class TrainingHistory {
 public:
  struct Point {
    int32_t step = 0;
    float loss = 0;  // NaN while unknown
    float splats = 0;
    float milliseconds = 0;  // NaN while unknown
    float value(Curve curve) const;
  };
  struct Range {
    float low = 0;
    float high = 1;
  };

  explicit TrainingHistory(size_t capacity = 1024) : capacity_(capacity < 2 ? 2 : capacity) {}

  // Once a frame. A status that goes back to an earlier step begins a new run.
  void add(const gs::TrainStatus& status);
  void clear();

  const std::vector<Point>& points() const { return points_; }
  int32_t firstStep() const { return points_.empty() ? 0 : points_.front().step; }
  int32_t lastStep() const { return points_.empty() ? 0 : points_.back().step; }

  // The range of the vertical axis, chosen so that a few outliers, above all the first steps' losses, do not flatten
  // the rest: they run off the top. Nothing while the curve has no value. Recent values always fit.
  std::optional<Range> range(Curve curve) const;

  // The point nearest to a step; null when there is none.
  const Point* at(double step) const;

 private:
  void join();

  const size_t capacity_;
  std::vector<Point> points_;
  int32_t stride_ = 1;  // steps between points
};

// "Loss"; "0.0123", "1,234,567", "12.3 ms".
const char* curveName(Curve curve);
std::string curveText(Curve curve, float value);

}  // namespace quor::ui
