#include "colmap/rewrite_model.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "colmap/model_files.h"

namespace quor::gs::colmap {
namespace {

namespace fs = std::filesystem;

// Reads a file and writes another beside it, which takes its place at the end.
class FileRewriter {
 public:
  explicit FileRewriter(const fs::path& path) : path_(path), in_(openModelFile(path)), out_(path) {}

  template <typename T>
  T read() {
    T value;
    in_.read(reinterpret_cast<char*>(&value), sizeof value);
    if (!in_) throw std::runtime_error("Truncated COLMAP file: " + toUtf8(path_));
    return value;
  }
  template <typename T>
  void write(const T& value) {
    out_.stream().write(reinterpret_cast<const char*>(&value), sizeof value);
  }
  template <typename T>
  T copy() {
    const T value = read<T>();
    write(value);
    return value;
  }
  void copyBytes(uint64_t count) {
    char block[1 << 14];
    for (uint64_t left = count; left > 0;) {
      const auto size = static_cast<std::streamsize>(std::min<uint64_t>(left, sizeof block));
      if (!in_.read(block, size)) throw std::runtime_error("Truncated COLMAP file: " + toUtf8(path_));
      out_.stream().write(block, size);
      left -= static_cast<uint64_t>(size);
    }
  }
  // An entry's variable part: a count and so many elements.
  void copyList(uint64_t elementBytes) {
    const auto count = copy<uint64_t>();
    if (count > UINT64_MAX / elementBytes) throw std::runtime_error("Truncated COLMAP file: " + toUtf8(path_));
    copyBytes(count * elementBytes);
  }
  void commit() {
    in_.close();  // a file that is open cannot be replaced everywhere
    out_.commit();
  }

 private:
  const fs::path path_;
  std::ifstream in_;
  AtomicFile out_;
};

void rewriteImages(const fs::path& path, const std::function<void(Image&)>& movePose) {
  constexpr uint64_t kObservationBytes = 24;
  FileRewriter file(path);
  for (auto count = file.copy<uint64_t>(); count > 0; --count) {
    file.copy<uint32_t>();  // id
    Image image;
    image.qvec = file.read<decltype(image.qvec)>();
    image.tvec = file.read<decltype(image.tvec)>();
    movePose(image);
    file.write(image.qvec);
    file.write(image.tvec);
    file.copy<uint32_t>();  // camera
    while (file.copy<char>() != 0) {
    }
    file.copyList(kObservationBytes);
  }
  file.commit();
}

void rewritePoints(const fs::path& path, const std::function<void(std::array<double, 3>&)>& movePoint) {
  constexpr uint64_t kColourAndErrorBytes = 3 + 8, kTrackElementBytes = 8;
  FileRewriter file(path);
  for (auto count = file.copy<uint64_t>(); count > 0; --count) {
    file.copy<uint64_t>();  // id
    auto position = file.read<std::array<double, 3>>();
    movePoint(position);
    file.write(position);
    file.copyBytes(kColourAndErrorBytes);
    file.copyList(kTrackElementBytes);
  }
  file.commit();
}

}  // namespace

void rewriteBinaryModel(const fs::path& dir, const std::function<void(Image&)>& movePose,
                        const std::function<void(std::array<double, 3>&)>& movePoint) {
  rewriteImages(dir / "images.bin", movePose);
  rewritePoints(dir / "points3D.bin", movePoint);
  for (const char* name : {"rigs.bin", "frames.bin"}) fs::remove(dir / name);
}

}  // namespace quor::gs::colmap
