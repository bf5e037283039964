// Photographs on the host: 8-bit RGB, rows from the top, three bytes a pixel, no padding. Reads JPEG, PNG, BMP and TGA,
// and what a decoder has been registered for. Every function may run on several threads at once.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

namespace quor {

struct Image {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> rgb;  // width * height * 3
};

struct ImageSize {
  int width = 0;
  int height = 0;
};

// Larger pictures, and larger files, are refused.
inline constexpr int64_t kLargestImageBytes = int64_t{1} << 30;
// Throws std::runtime_error with the bare reason when a picture of this size would be larger.
void checkImageSize(int width, int height);

// Decodes a file to RGB (grey, palette, CMYK and 16-bit files become plain 8-bit RGB, an alpha channel is dropped). The
// pixels come as they are stored: an EXIF orientation is not applied. Throws std::runtime_error "Cannot read image
// PATH: reason", also for an image of more than 1 GiB of pixels.
Image readImage(const std::filesystem::path& path);

// The pixel size from the file's header alone; throws as readImage.
ImageSize readImageSize(const std::filesystem::path& path);

// A decoder for files that this folder cannot read itself: the picture, or nothing when it does not know the format
// either; it throws std::runtime_error with the bare reason for a damaged file of a format that it does know. Called
// from any thread.
using ImageDecoder = std::function<std::optional<Image>(const std::filesystem::path& path)>;
// Asked by readImage and readImageSize when their own formats do not fit. One decoder for the whole program;
// registering another takes its place. To be called before images are read on other threads.
void registerImageDecoder(ImageDecoder decoder);

// Averages areas when a side shrinks and interpolates linearly when it grows, in the stored (gamma-encoded) values.
// Throws std::invalid_argument unless every side is at least 1 and the picture holds width * height * 3 bytes.
Image resizeImage(const Image& image, int width, int height);

// Throw std::runtime_error "Cannot write PATH" (with the reason where the system gives one); an older file at `path` is
// then left as it was.
void writePng(const std::filesystem::path& path, const Image& image);
void writeJpeg(const std::filesystem::path& path, const Image& image, int quality);  // 1..100

}  // namespace quor
