// A checkpoint of one splat, for tests that only ask whether training can go on.
#pragma once

#include "gs/files/checkpoint.h"

namespace quor::test {

inline void writeSmallCheckpoint(const std::filesystem::path& path, uint32_t step, gs::Technique technique = {}) {
  gs::Checkpoint checkpoint;
  checkpoint.set.resize(1);
  for (size_t group = 0; group < gs::kGroupCount; ++group) {
    checkpoint.firstMoments[group].resize(gs::kGroupWidths[group]);
    checkpoint.secondMoments[group].resize(gs::kGroupWidths[group]);
  }
  checkpoint.header.step = step;
  checkpoint.header.technique = technique;
  checkpoint.header.count = 1;
  gs::writeCheckpoint(path, checkpoint);
}

}  // namespace quor::test
