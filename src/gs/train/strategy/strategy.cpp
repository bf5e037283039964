#include "gs/train/strategy/strategy.h"

#include <algorithm>
#include <stdexcept>

#include "base/text/text.h"
#include "gs/train/strategy/adaptive_density.h"
#include "gs/train/strategy/mcmc.h"

namespace quor::gs {

void Strategy::restore(const CheckpointHeader& header) {
  cap_ = std::max(cap_, header.count);
}

std::unique_ptr<Strategy> makeStrategy(const TrainJob& job, double extent, uint64_t cap) {
  switch (job.technique) {
    case Technique::Vanilla:
      return std::make_unique<AdaptiveDensity>(job, extent, cap);
    case Technique::Mcmc:
      return std::make_unique<Mcmc>(job, extent, cap);
  }
  throw std::logic_error("No strategy for this technique");
}

std::string passLine(int step, uint64_t reset) {
  std::string text = formatText("step %d: ", step);
  if (reset > 0) text += formatText("reset %llu diverged splats, ", static_cast<unsigned long long>(reset));
  return text;
}

}  // namespace quor::gs
