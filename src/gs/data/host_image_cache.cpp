#include "gs/data/host_image_cache.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/files/paths.h"
#include "base/host_memory.h"
#include "base/text/text.h"

namespace quor::gs {
namespace {

// When the system does not report its free memory.
constexpr uint64_t kDefaultBudget = uint64_t{2} << 30;

uint64_t automaticBudget() {
  const uint64_t free = availableHostMemory();
  return free == UINT64_MAX ? kDefaultBudget : free / 2;
}

}  // namespace

StoredImage::StoredImage(Image image)
    : size_{image.width, image.height}, image_(std::make_shared<const Image>(std::move(image))) {}

StoredImage::StoredImage(ImageSize size, std::shared_ptr<const TemporaryFile> file, uint64_t offset)
    : size_(size), file_(std::move(file)), offset_(offset) {}

std::shared_ptr<const Image> StoredImage::pixels() const {
  if (image_) return image_;
  Image image{size_.width, size_.height, std::vector<uint8_t>(bytes())};
  read(image.rgb.data());
  return std::make_shared<const Image>(std::move(image));
}

void StoredImage::read(uint8_t* to) const {
  if (image_) std::copy(image_->rgb.begin(), image_->rgb.end(), to);
  if (!file_) return;
  try {
    file_->read(to, bytes(), offset_);
  } catch (const std::runtime_error& e) {
    throw std::runtime_error("A photograph cannot be read again from the temporary file in " + toUtf8(file_->folder()) +
                             ": " + e.what() + ".");
  }
}

HostImageCache::HostImageCache(HostImageCacheOptions options) : options_(std::move(options)) {
  if (options_.budget == 0) options_.budget = automaticBudget();
}

HostImageCache::Place HostImageCache::placeFor(uint64_t bytes) {
  const std::lock_guard lock(mutex_);
  if (bytes <= options_.budget - kept_) {
    kept_ += bytes;
    return {};
  }
  const uint64_t offset = filedBytes_;
  filedBytes_ += bytes;
  if (!file_) file_ = std::make_shared<TemporaryFile>(options_.folder);
  ++filedImages_;
  return {file_, offset};
}

StoredImage HostImageCache::store(Image image) {
  try {
    const Place place = placeFor(image.rgb.size());
    if (!place.file) return StoredImage(std::move(image));
    place.file->write(image.rgb.data(), image.rgb.size(), place.offset);
    return {{image.width, image.height}, place.file, place.offset};
  } catch (const std::runtime_error& e) {
    const std::string folder = options_.folder.empty() ? "the system's temporary folder" : toUtf8(options_.folder);
    throw std::runtime_error(
        formatText("The photographs do not fit into memory, and %s cannot take the rest of them (at least %llu MB): "
                   "%s. Make room there, or lower the training resolution.",
                   folder.c_str(), static_cast<unsigned long long>(filedBytes() >> 20) + 1, e.what()));
  }
}

size_t HostImageCache::filedImages() const {
  const std::lock_guard lock(mutex_);
  return filedImages_;
}

uint64_t HostImageCache::filedBytes() const {
  const std::lock_guard lock(mutex_);
  return filedBytes_;
}

}  // namespace quor::gs
