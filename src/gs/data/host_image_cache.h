// The pixels of any number of photographs in a bounded amount of memory: the first photographs stay in memory, and
// those that no longer fit the budget go to one temporary file. A photograph never moves from one to the other; the
// system's file cache keeps as much of the file in memory as there is room for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>

#include "base/files/temporary_file.h"
#include "base/image/image.h"

namespace quor::gs {

// A picture that any thread can read any number of times. Copies share the pixels, which are freed with the last copy.
class StoredImage {
 public:
  StoredImage() = default;            // no pixels
  explicit StoredImage(Image image);  // in memory
  StoredImage(ImageSize size, std::shared_ptr<const TemporaryFile> file, uint64_t offset);

  int width() const { return size_.width; }
  int height() const { return size_.height; }
  size_t bytes() const { return static_cast<size_t>(size_.width) * static_cast<size_t>(size_.height) * 3; }

  // Both throw std::runtime_error with a whole sentence when the file cannot be read. pixels() copies only what is in
  // the file; read() fills bytes() bytes.
  std::shared_ptr<const Image> pixels() const;
  void read(uint8_t* to) const;

 private:
  ImageSize size_;
  std::shared_ptr<const Image> image_;  // null: in the file
  std::shared_ptr<const TemporaryFile> file_;
  uint64_t offset_ = 0;
};

struct HostImageCacheOptions {
  std::filesystem::path folder;  // of the file; empty = the system's folder for such files
  uint64_t budget = 0;           // bytes that may stay in memory; 0 = half of what the computer has free
};

class HostImageCache {
 public:
  explicit HostImageCache(HostImageCacheOptions options);

  // With the budget that "0" stands for.
  const HostImageCacheOptions& options() const { return options_; }

  // Safe on any thread. Throws std::runtime_error with a whole sentence when the disk does not take the pixels. Stored
  // images may outlive the cache.
  StoredImage store(Image image);

  // Stored in the file so far.
  size_t filedImages() const;
  uint64_t filedBytes() const;

 private:
  struct Place {
    std::shared_ptr<TemporaryFile> file;  // null: in memory
    uint64_t offset = 0;
  };
  Place placeFor(uint64_t bytes);

  HostImageCacheOptions options_;
  mutable std::mutex mutex_;
  uint64_t kept_ = 0;  // bytes in memory
  std::shared_ptr<TemporaryFile> file_;
  size_t filedImages_ = 0;
  uint64_t filedBytes_ = 0;
};

}  // namespace quor::gs
