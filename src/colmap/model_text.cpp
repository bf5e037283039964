#include <algorithm>
#include <charconv>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <utility>

#include "colmap/model_files.h"

namespace quor::gs::colmap {
namespace {

constexpr std::string_view kBlanks = " \t";

// The words of a line, one after the other. A read that fails leaves its value alone.
class Fields {
 public:
  explicit Fields(std::string_view line) : rest_(line) {}

  std::string_view word() {
    rest_ = rest();
    const std::string_view word = rest_.substr(0, rest_.find_first_of(kBlanks));
    rest_.remove_prefix(word.size());
    return word;
  }

  // Independent of the locale, unlike a stream.
  template <typename T>
  bool number(T& value) {
    std::string_view text = word();
    if (text.starts_with('+')) text.remove_prefix(1);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
  }

  template <typename... T>
  bool numbers(T&... values) {
    return (number(values) && ...);
  }

  std::string_view rest() const { return rest_.substr(std::min(rest_.find_first_not_of(kBlanks), rest_.size())); }

 private:
  std::string_view rest_;
};

// Every line except comments, without its line end.
void forEachLine(const std::filesystem::path& path, const std::function<void(std::string_view)>& take) {
  std::ifstream file = openModelFile(path);
  for (std::string line; std::getline(file, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (!line.starts_with('#')) take(line);
  }
}

}  // namespace

std::map<uint32_t, Camera> readCamerasText(const std::filesystem::path& path) {
  std::map<uint32_t, Camera> cameras;
  forEachLine(path, [&](std::string_view line) {
    Fields fields(line);
    Camera camera;
    if (!fields.number(camera.id)) return;
    const std::string_view name = fields.word();
    const std::optional<int32_t> model = cameraModelId(name);
    if (!model) throw std::runtime_error("Unknown COLMAP camera model " + std::string(name));
    camera.model = *model;
    if (!fields.numbers(camera.width, camera.height)) return;
    for (double param = 0; fields.number(param);) camera.params.push_back(param);
    cameras[camera.id] = std::move(camera);
  });
  return cameras;
}

std::vector<Image> readImagesText(const std::filesystem::path& path) {
  std::vector<Image> images;
  bool started = false, observations = false;
  forEachLine(path, [&](std::string_view line) {
    started |= !line.empty();
    if (!started) return;
    // Two lines an image; the second, its observations, may be empty.
    if (std::exchange(observations, !observations)) return;
    Fields fields(line);
    Image image;
    auto& [qw, qx, qy, qz] = image.qvec;
    auto& [tx, ty, tz] = image.tvec;
    if (!fields.numbers(image.id, qw, qx, qy, qz, tx, ty, tz, image.cameraId)) return;
    image.name = fields.rest();
    images.push_back(std::move(image));
  });
  return images;
}

Points readPointsText(const std::filesystem::path& path) {
  Points points;
  ErrorMean mean;
  forEachLine(path, [&](std::string_view line) {
    Fields fields(line);
    uint64_t id = 0;
    double position[3];
    int color[3];
    if (!fields.numbers(id, position[0], position[1], position[2], color[0], color[1], color[2])) return;
    for (const double p : position) points.positions.push_back(static_cast<float>(p));
    for (const int c : color) points.colors.push_back(static_cast<uint8_t>(c));
    if (double error = 0; fields.number(error)) mean.add(error);
  });
  points.meanError = mean.value();
  return points;
}

}  // namespace quor::gs::colmap
