#include "ui/vulkan/file_pictures.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/files/paths.h"
#include "base/image/image.h"

namespace quor::ui {
namespace {

constexpr auto kForgetAfter = std::chrono::seconds(10);
constexpr auto kLookAgainAfter = std::chrono::seconds(2);  // whether the file has changed

struct Pixels {
  int width = 0, height = 0;
  std::vector<uint8_t> rgba;
  std::filesystem::file_time_type written;
};

std::filesystem::file_time_type timeOf(const std::filesystem::path& file) {
  std::error_code error;
  const auto time = std::filesystem::last_write_time(file, error);
  return error ? std::filesystem::file_time_type() : time;
}

Pixels readPixels(const std::filesystem::path& file, int longestEdge) {
  Pixels pixels;
  pixels.written = timeOf(file);
  Image image = readImage(file);
  const double scale = static_cast<double>(longestEdge) / std::max(image.width, image.height);
  if (scale < 1) {
    const auto edge = [&](int length) { return std::max(1, static_cast<int>(std::lround(length * scale))); };
    image = resizeImage(image, edge(image.width), edge(image.height));
  }
  pixels.width = image.width;
  pixels.height = image.height;
  pixels.rgba.resize(image.rgb.size() / 3 * 4, 255);
  for (size_t i = 0; i < image.rgb.size() / 3; ++i) std::copy_n(&image.rgb[3 * i], 3, &pixels.rgba[4 * i]);
  return pixels;
}

}  // namespace

std::optional<Picture> FilePictures::picture(const std::filesystem::path& file, int longestEdge) {
  const Key key = {toUtf8(file), longestEdge};
  const auto now = Clock::now();
  const auto [at, isNew] = entries_.try_emplace(key);
  Entry& entry = at->second;
  entry.asked = now;
  if (isNew || (!entry.reading && now - entry.looked > kLookAgainAfter)) read(key);
  return entry.picture;
}

void FilePictures::read(const Key& key) {
  Entry& entry = entries_[key];
  entry.reading = true;
  entry.looked = Clock::now();
  const std::filesystem::path file = fromUtf8(key.first);
  background_.run(
      "",
      [file, edge = key.second, known = entry.picture.has_value(), before = entry.written]() -> std::optional<Pixels> {
        if (known && timeOf(file) == before) return std::nullopt;
        try {
          return readPixels(file, edge);
        } catch (const std::exception&) {  // shown as a gap
          Pixels none;
          none.written = timeOf(file);
          return none;
        }
      },
      [this, key](const std::optional<Pixels>& pixels) {
        const auto found = entries_.find(key);
        if (found == entries_.end()) return;
        Entry& read = found->second;
        read.reading = false;
        if (!pixels) return;
        if (read.picture) textures_.destroy(read.picture->texture);
        read.picture = Picture{0, pixels->width, pixels->height};
        if (!pixels->rgba.empty()) {
          read.picture->texture = textures_.create(pixels->width, pixels->height, pixels->rgba);
        }
        read.written = pixels->written;
      },
      [](const std::string&) {});
}

void FilePictures::update() {
  background_.update();
  const auto now = Clock::now();
  for (auto at = entries_.begin(); at != entries_.end();) {
    if (at->second.reading || now - at->second.asked < kForgetAfter) {
      ++at;
      continue;
    }
    if (at->second.picture) textures_.destroy(at->second.picture->texture);
    at = entries_.erase(at);
  }
}

}  // namespace quor::ui
