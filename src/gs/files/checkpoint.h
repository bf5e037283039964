// The resumable state of a training run in one file: a 112-byte header, then for each of the six parameter groups its
// values and its two Adam moments. Little-endian.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "gs/splats/gaussian_set.h"
#include "settings/technique.h"

namespace quor::gs {

inline constexpr size_t kCheckpointHeaderSize = 112;
inline constexpr uint64_t kCheckpointBytesPerSplat = 3 * kFloatsPerSplat * sizeof(float);
using CheckpointHeaderBytes = std::array<char, kCheckpointHeaderSize>;

struct CheckpointHeader {
  uint32_t version = 1;
  Technique technique = Technique::Vanilla;
  uint32_t step = 0;       // optimisation steps done
  int32_t iterations = 0;  // the run's target when written
  int32_t shDegree = 3;    // active degree
  int32_t downscaleLevels = 2;
  int32_t stepsPerLevel = 0;
  uint32_t groupCount = kGroupCount;
  uint64_t count = 0;        // splats
  uint64_t capacity = 0;     // splat cap in force
  uint64_t mcmcTarget = 0;   // 0 for Vanilla
  uint64_t randomState = 0;  // SplitMix64
  uint64_t seed = 0;
  float sceneExtent = 1.0f;
};

// A checkpoint's body where it lies: a span a group.
struct CheckpointArrays {
  using Groups = std::array<std::span<const float>, kGroupCount>;
  Groups values, firstMoments, secondMoments;
};

struct Checkpoint {
  CheckpointHeader header;
  GaussianSet set;
  GroupArrays firstMoments;
  GroupArrays secondMoments;
};

// Empty when a file of `fileSize` bytes that begins with `bytes` can be read, else the reason why not, as a part of a
// sentence without its full stop.
std::string checkHeader(const CheckpointHeaderBytes& bytes, uint64_t fileSize);

// Makes the file's folder where it is missing. Atomic: a failed write leaves the earlier file. The header's count is
// the number of splats written; std::logic_error when the arrays are not all of that many.
void writeCheckpoint(const std::filesystem::path& path, const CheckpointHeader& header, const CheckpointArrays& arrays);
// The same; the count is the set's.
void writeCheckpoint(const std::filesystem::path& path, const CheckpointHeader& header, const GaussianSet& set,
                     const GroupArrays& firstMoments, const GroupArrays& secondMoments);
inline void writeCheckpoint(const std::filesystem::path& path, const Checkpoint& checkpoint) {
  writeCheckpoint(path, checkpoint.header, checkpoint.set, checkpoint.firstMoments, checkpoint.secondMoments);
}

// Throws std::runtime_error, also when memory is too small for the file; the set's degree is the header's. Values that
// no run writes (a degree above 3, an extent that is not positive) are replaced by ones that a run can go on from.
Checkpoint readCheckpoint(const std::filesystem::path& path);
// The checked header alone; throws as readCheckpoint.
CheckpointHeader readCheckpointHeader(const std::filesystem::path& path);

}  // namespace quor::gs
