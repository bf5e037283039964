#include <algorithm>
#include <bit>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "base/files/paths.h"
#include "colmap/model_files.h"

namespace quor::gs::colmap {
namespace {

static_assert(std::endian::native == std::endian::little, "the files are read as they lie");

constexpr uint64_t kObservationBytes = 24;
constexpr uint64_t kTrackElementBytes = 8;

// Exact reads and skips with its own large buffer: a stream drops its buffer at every seek, and a model's points
// are a seek each.
class Reader {
 public:
  explicit Reader(const std::filesystem::path& path) : path_(path), file_(openModelFile(path)), buffer_(1 << 20) {
    file_.seekg(0, std::ios::end);
    const std::streamoff size = file_.tellg();
    file_.seekg(0);
    if (!file_ || size < 0) throw std::runtime_error("Cannot open " + toUtf8(path));
    unread_ = static_cast<uint64_t>(size);
  }

  template <typename T>
  T read() {
    T value;
    if (end_ - begin_ < sizeof value) refill(sizeof value);
    std::memcpy(&value, buffer_.data() + begin_, sizeof value);
    begin_ += sizeof value;
    return value;
  }

  std::string readName() {
    std::string name;
    while (true) {
      if (begin_ == end_) refill(1);
      const char* from = buffer_.data() + begin_;
      const auto* zero = static_cast<const char*>(std::memchr(from, 0, end_ - begin_));
      const size_t length = zero ? static_cast<size_t>(zero - from) : end_ - begin_;
      name.append(from, length);
      begin_ += length;
      if (!zero) continue;
      ++begin_;
      return name;
    }
  }

  void skip(uint64_t count, uint64_t size) {
    if (count > remaining() / size) throwTruncated();
    const uint64_t bytes = count * size;
    const uint64_t buffered = std::min<uint64_t>(bytes, end_ - begin_);
    begin_ += static_cast<size_t>(buffered);
    if (bytes == buffered) return;
    unread_ -= bytes - buffered;
    file_.seekg(static_cast<std::streamoff>(bytes - buffered), std::ios::cur);
  }

  // How many records of at least `size` bytes the rest of the file can hold: the limit for a count before it is
  // trusted.
  size_t atMost(uint64_t count, uint64_t size) const {
    return static_cast<size_t>(std::min<uint64_t>(count, remaining() / size));
  }

 private:
  uint64_t remaining() const { return unread_ + (end_ - begin_); }

  void refill(size_t need) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    const auto wanted = static_cast<size_t>(std::min<uint64_t>(unread_, buffer_.size() - end_));
    file_.read(buffer_.data() + end_, static_cast<std::streamsize>(wanted));
    end_ += wanted;
    unread_ -= wanted;
    if (!file_ || end_ < need) throwTruncated();
  }

  [[noreturn]] void throwTruncated() const { throw std::runtime_error("Truncated COLMAP file: " + toUtf8(path_)); }

  const std::filesystem::path path_;
  std::ifstream file_;
  std::vector<char> buffer_;
  size_t begin_ = 0, end_ = 0;  // of the buffered bytes
  uint64_t unread_ = 0;         // bytes of the file behind the buffered ones
};

}  // namespace

std::map<uint32_t, Camera> readCamerasBinary(const std::filesystem::path& path) {
  Reader reader(path);
  std::map<uint32_t, Camera> cameras;
  const auto count = reader.read<uint64_t>();
  for (uint64_t i = 0; i < count; ++i) {
    Camera camera;
    camera.id = reader.read<uint32_t>();
    camera.model = reader.read<int32_t>();
    const CameraModel* model = cameraModel(camera.model);
    if (!model) throw std::runtime_error("Unknown COLMAP camera model id " + std::to_string(camera.model));
    camera.width = reader.read<uint64_t>();
    camera.height = reader.read<uint64_t>();
    for (size_t p = 0; p < model->paramCount; ++p) camera.params.push_back(reader.read<double>());
    cameras[camera.id] = std::move(camera);
  }
  return cameras;
}

std::vector<Image> readImagesBinary(const std::filesystem::path& path) {
  constexpr uint64_t kMinBytes = 4 + 7 * 8 + 4 + 1 + 8;
  Reader reader(path);
  std::vector<Image> images;
  const auto count = reader.read<uint64_t>();
  images.reserve(reader.atMost(count, kMinBytes));
  for (uint64_t i = 0; i < count; ++i) {
    Image image;
    image.id = reader.read<uint32_t>();
    for (double& q : image.qvec) q = reader.read<double>();
    for (double& t : image.tvec) t = reader.read<double>();
    image.cameraId = reader.read<uint32_t>();
    image.name = reader.readName();
    reader.skip(reader.read<uint64_t>(), kObservationBytes);
    images.push_back(std::move(image));
  }
  return images;
}

Points readPointsBinary(const std::filesystem::path& path) {
  constexpr uint64_t kMinBytes = 8 + 3 * 8 + 3 + 8 + 8;
  Reader reader(path);
  Points points;
  ErrorMean error;
  const auto count = reader.read<uint64_t>();
  const size_t expected = reader.atMost(count, kMinBytes);
  points.positions.reserve(expected * 3);
  points.colors.reserve(expected * 3);
  for (uint64_t i = 0; i < count; ++i) {
    reader.skip(1, sizeof(uint64_t));  // point id
    for (int k = 0; k < 3; ++k) points.positions.push_back(static_cast<float>(reader.read<double>()));
    for (int k = 0; k < 3; ++k) points.colors.push_back(reader.read<uint8_t>());
    error.add(reader.read<double>());
    reader.skip(reader.read<uint64_t>(), kTrackElementBytes);
  }
  points.meanError = error.value();
  return points;
}

std::vector<uint64_t> readPointIdsBinary(const std::filesystem::path& path) {
  Reader reader(path);
  std::vector<uint64_t> ids;
  const auto count = reader.read<uint64_t>();
  for (uint64_t i = 0; i < count; ++i) {
    ids.push_back(reader.read<uint64_t>());
    reader.skip(1, 3 * sizeof(double) + 3 + sizeof(double));
    reader.skip(reader.read<uint64_t>(), kTrackElementBytes);
  }
  return ids;
}

std::map<uint32_t, Observations> readObservationsBinary(const std::filesystem::path& path,
                                                        const std::unordered_map<uint64_t, size_t>& points) {
  constexpr uint64_t kNoPointId = ~uint64_t{0};
  Reader reader(path);
  std::map<uint32_t, Observations> lists;
  const auto count = reader.read<uint64_t>();
  for (uint64_t i = 0; i < count; ++i) {
    const auto id = reader.read<uint32_t>();
    reader.skip(1, 7 * sizeof(double) + sizeof(uint32_t));
    reader.readName();
    const auto size = reader.read<uint64_t>();
    Observations& list = lists[id];
    list.reserve(reader.atMost(size, kObservationBytes));
    for (uint64_t k = 0; k < size; ++k) {
      Observation& observation = list.emplace_back();
      observation.x = reader.read<double>();
      observation.y = reader.read<double>();
      const auto point = reader.read<uint64_t>();
      if (point == kNoPointId) continue;
      const auto known = points.find(point);
      if (known == points.end()) throw std::runtime_error("Damaged COLMAP file: " + toUtf8(path));
      observation.point = known->second;
    }
  }
  return lists;
}

}  // namespace quor::gs::colmap
