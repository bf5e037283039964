#include "ui/models/view/training_history.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/text/text.h"
#include "ui/models/number_text.h"

namespace quor::ui {

namespace {

constexpr float kUnknown = std::numeric_limits<float>::quiet_NaN();
constexpr size_t kRecent = 20;      // points at the end that always fit
constexpr float kHeadroom = 1.08F;  // above the highest value that fits
// Of the values of a curve, which part fits: the first steps of a run have by far the highest losses, and single steps
// take long when the computer has something else to do.
constexpr float fitting(Curve curve) {
  return curve == Curve::Splats ? 1.0F : 0.95F;
}

float mean(float a, float b) {
  if (std::isnan(a)) return b;
  return std::isnan(b) ? a : (a + b) / 2;
}

}  // namespace

float TrainingHistory::Point::value(Curve curve) const {
  switch (curve) {
    case Curve::Loss:
      return loss;
    case Curve::Splats:
      return splats;
    case Curve::Milliseconds:
      break;
  }
  return milliseconds;
}

void TrainingHistory::add(const gs::TrainStatus& status) {
  if (status.state != gs::TrainState::Training || status.step <= 0) return;
  if (!points_.empty() && status.step < lastStep()) clear();
  if (!points_.empty() && status.step < lastStep() + stride_) return;
  if (points_.size() == capacity_) join();
  const float milliseconds = status.msPerStep > 0 ? static_cast<float>(status.msPerStep) : kUnknown;
  points_.push_back({status.step, status.loss, static_cast<float>(status.splats), milliseconds});
}

void TrainingHistory::clear() {
  points_.clear();
  stride_ = 1;
}

void TrainingHistory::join() {
  size_t kept = 0;
  for (size_t i = 0; i + 1 < points_.size(); i += 2) {
    const Point &a = points_[i], &b = points_[i + 1];
    points_[kept++] = {b.step, mean(a.loss, b.loss), b.splats, mean(a.milliseconds, b.milliseconds)};
  }
  if (points_.size() % 2 != 0) points_[kept++] = points_.back();
  points_.resize(kept);
  stride_ = std::max(stride_ * 2, (lastStep() - firstStep()) / static_cast<int32_t>(capacity_));
}

std::optional<TrainingHistory::Range> TrainingHistory::range(Curve curve) const {
  std::vector<float> values;
  float recent = 0;
  for (size_t i = 0; i < points_.size(); ++i) {
    const float value = points_[i].value(curve);
    if (!std::isfinite(value)) continue;
    values.push_back(value);
    if (i + kRecent >= points_.size()) recent = std::max(recent, value);
  }
  if (values.empty()) return std::nullopt;
  if (values.size() <= kRecent) recent = 0;  // all of them are
  std::ranges::sort(values);
  const auto last = static_cast<float>(values.size() - 1);
  float high = values[static_cast<size_t>(last * fitting(curve))];
  high = std::max(high, recent);
  // Counts and times mean something from zero up; of the loss it is the descent that matters.
  const float low = curve == Curve::Loss ? std::min(values.front(), high) * 0.9F : 0.0F;
  high = low + (high - low) * kHeadroom;
  if (!(high > low)) high = low + 1;
  return Range{low, high};
}

const TrainingHistory::Point* TrainingHistory::at(double step) const {
  if (points_.empty()) return nullptr;
  const auto after =
      std::ranges::lower_bound(points_, step, {}, [](const Point& p) { return static_cast<double>(p.step); });
  if (after == points_.begin()) return &points_.front();
  if (after == points_.end()) return &points_.back();
  const auto before = after - 1;
  return after->step - step < step - before->step ? &*after : &*before;
}

const char* curveName(Curve curve) {
  switch (curve) {
    case Curve::Loss:
      return "Loss";
    case Curve::Splats:
      return "Splats";
    case Curve::Milliseconds:
      break;
  }
  return "Time per step";
}

std::string curveText(Curve curve, float value) {
  if (std::isnan(value)) return "—";
  if (curve == Curve::Splats) return withThousands(static_cast<uint64_t>(std::max(value, 0.0F)));
  return formatText(curve == Curve::Loss ? "%.4f" : "%.1f ms", static_cast<double>(value));
}

}  // namespace quor::ui
