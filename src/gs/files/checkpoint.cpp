#include "gs/files/checkpoint.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <new>
#include <stdexcept>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "base/host_memory.h"

namespace quor::gs {

static_assert(std::endian::native == std::endian::little, "values are copied into little-endian files as they stand");

namespace {

constexpr char kMagic[8] = {'Q', 'U', 'O', 'R', 'C', 'K', 'P', 'T'};
constexpr uint32_t kVersion = 1;
constexpr uint64_t kMaxSplats = uint64_t{1} << 28;
constexpr uint64_t kReadFloats = uint64_t{1} << 22;  // made room for at a time

constexpr AtomicFileTexts kTexts = {"Could not write ", "Could not write ", " (disk full?)", "Could not replace "};

// The header's fields and their offsets, for reading and for writing; the bytes that are left are reserved.
template <typename Header, typename Field>
void forEachField(Header& header, Field&& field) {
  field(8, header.version);
  field(12, header.technique);
  field(16, header.step);
  field(20, header.iterations);
  field(24, header.shDegree);
  field(28, header.downscaleLevels);
  field(32, header.stepsPerLevel);
  field(36, header.groupCount);
  field(40, header.count);
  field(48, header.capacity);
  field(56, header.mcmcTarget);
  field(64, header.randomState);
  field(72, header.seed);
  field(80, header.sceneExtent);
}
static_assert(sizeof(Technique) == 4);

CheckpointHeaderBytes encode(const CheckpointHeader& header) {
  CheckpointHeaderBytes bytes = {};
  std::memcpy(bytes.data(), kMagic, sizeof(kMagic));
  forEachField(header,
               [&](size_t offset, const auto& value) { std::memcpy(bytes.data() + offset, &value, sizeof(value)); });
  return bytes;
}

CheckpointHeader decode(const CheckpointHeaderBytes& bytes) {
  CheckpointHeader header;
  forEachField(header, [&](size_t offset, auto& value) { std::memcpy(&value, bytes.data() + offset, sizeof(value)); });
  return header;
}

// A damaged header that passes the checks must still hold values that a trainer can start from.
CheckpointHeader sanitised(CheckpointHeader header) {
  header.shDegree = std::clamp(header.shDegree, 0, 3);
  header.downscaleLevels = std::max(header.downscaleLevels, 0);
  if (!(std::isfinite(header.sceneExtent) && header.sceneExtent > 0)) header.sceneExtent = 1.0f;
  return header;
}

void writeFloats(AtomicFile& file, std::span<const float> values) {
  if (!file.good()) return;
  file.stream().write(reinterpret_cast<const char*>(values.data()), static_cast<std::streamsize>(values.size_bytes()));
}

class Reader {
 public:
  explicit Reader(const std::filesystem::path& path) : name_(toUtf8(path)), stream_(path, std::ios::binary) {
    std::error_code error;
    if (!stream_ || std::filesystem::is_directory(path, error)) throw std::runtime_error("Could not open " + name_);
    fileSize_ = std::filesystem::file_size(path, error);
    if (error) fileSize_ = std::numeric_limits<uint64_t>::max();
  }

  CheckpointHeader header() {
    CheckpointHeaderBytes bytes;
    if (!stream_.read(bytes.data(), bytes.size())) refuse("it is too small to be a checkpoint");
    const std::string reason = checkHeader(bytes, fileSize_);
    if (!reason.empty()) refuse(reason);
    return sanitised(decode(bytes));
  }

  void requireMemory(uint64_t splats) const {
    if (splats > availableHostMemory() / kCheckpointBytesPerSplat) refuseMemory(splats);
  }
  [[noreturn]] void refuseMemory(uint64_t splats) const {
    refuse("its " + std::to_string(splats) + " splats need " +
           std::to_string((splats * kCheckpointBytesPerSplat >> 20) + 1) +
           " MB of memory, more than this computer has free");
  }

  // Room is made block by block: where the file's size is unknown nothing has vouched for the count.
  void floats(std::vector<float>& values, uint64_t count) {
    if (fileSize_ != std::numeric_limits<uint64_t>::max()) values.reserve(count);
    while (values.size() < count) {
      const size_t first = values.size();
      const uint64_t block = std::min(kReadFloats, count - first);
      values.resize(first + block);
      if (!stream_.read(reinterpret_cast<char*>(values.data() + first),
                        static_cast<std::streamsize>(block * sizeof(float)))) {
        refuse("it is truncated");
      }
    }
  }

 private:
  [[noreturn]] void refuse(const std::string& reason) const {
    throw std::runtime_error("Cannot resume from " + name_ + ": " + reason + ".");
  }

  std::string name_;
  std::ifstream stream_;
  uint64_t fileSize_ = 0;
};

// The parent of `path`, whatever separators it ends in.
std::filesystem::path parentFolder(const std::filesystem::path& path) {
  return path.has_filename() ? path.parent_path() : path.parent_path().parent_path();
}

void requireMatching(uint64_t count, const CheckpointArrays::Groups& arrays) {
  for (size_t g = 0; g < kGroupCount; ++g) {
    if (arrays[g].size() != count * kGroupWidths[g]) {
      throw std::logic_error("A checkpoint's arrays do not all belong to the same number of splats.");
    }
  }
}

}  // namespace

std::string checkHeader(const CheckpointHeaderBytes& bytes, uint64_t fileSize) {
  if (std::memcmp(bytes.data(), kMagic, sizeof(kMagic)) != 0) return "it is not a Ombrelux checkpoint";
  const CheckpointHeader header = decode(bytes);
  if (header.version != kVersion) {
    return "it was written by a newer Ombrelux (format " + std::to_string(header.version) + ", this build reads 1)";
  }
  if (header.groupCount != kGroupCount) return "its parameter layout is not one this build knows";
  if (header.count == 0 || header.count > kMaxSplats) return "it holds an implausible number of splats";
  if (fileSize < kCheckpointHeaderSize + kCheckpointBytesPerSplat * header.count) {
    return "it is truncated (" + std::to_string(fileSize) + " bytes)";
  }
  return "";
}

void writeCheckpoint(const std::filesystem::path& path, const CheckpointHeader& header,
                     const CheckpointArrays& arrays) {
  for (const auto* groups : {&arrays.values, &arrays.firstMoments, &arrays.secondMoments}) {
    requireMatching(header.count, *groups);
  }
  std::error_code ignored;  // a folder that cannot be made is a file that cannot be opened
  std::filesystem::create_directories(parentFolder(path), ignored);
  AtomicFile file(path, kTexts);

  CheckpointHeader written = header;
  written.version = kVersion;
  written.groupCount = kGroupCount;
  written.downscaleLevels = std::max(header.downscaleLevels, 0);
  const CheckpointHeaderBytes bytes = encode(written);
  file.stream().write(bytes.data(), bytes.size());
  for (size_t g = 0; g < kGroupCount; ++g) {
    writeFloats(file, arrays.values[g]);
    writeFloats(file, arrays.firstMoments[g]);
    writeFloats(file, arrays.secondMoments[g]);
  }
  file.commit(AtomicFile::Durability::OnDisk);
}

void writeCheckpoint(const std::filesystem::path& path, const CheckpointHeader& header, const GaussianSet& set,
                     const GroupArrays& firstMoments, const GroupArrays& secondMoments) {
  CheckpointHeader counted = header;
  counted.count = set.count;
  CheckpointArrays arrays;
  for (size_t g = 0; g < kGroupCount; ++g) {
    arrays.values[g] = set.group(static_cast<Group>(g));
    arrays.firstMoments[g] = firstMoments[g];
    arrays.secondMoments[g] = secondMoments[g];
  }
  writeCheckpoint(path, counted, arrays);
}

Checkpoint readCheckpoint(const std::filesystem::path& path) {
  Reader reader(path);
  Checkpoint checkpoint;
  checkpoint.header = reader.header();
  GaussianSet& set = checkpoint.set;
  set.count = checkpoint.header.count;
  set.shDegree = checkpoint.header.shDegree;
  reader.requireMemory(set.count);
  try {
    for (size_t g = 0; g < kGroupCount; ++g) {
      const uint64_t size = set.count * kGroupWidths[g];
      reader.floats(set.group(static_cast<Group>(g)), size);
      reader.floats(checkpoint.firstMoments[g], size);
      reader.floats(checkpoint.secondMoments[g], size);
    }
  } catch (const std::bad_alloc&) {
    reader.refuseMemory(set.count);
  }
  return checkpoint;
}

CheckpointHeader readCheckpointHeader(const std::filesystem::path& path) {
  return Reader(path).header();
}

}  // namespace quor::gs
