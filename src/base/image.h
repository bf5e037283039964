// Photographs on the host: 8-bit RGB, rows from the top, three bytes a pixel, no padding.
#pragma once

#include <cstdint>
#include <filesystem>
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

// Decodes a file to RGB (grey, palette, alpha and 16-bit files become plain 8-bit RGB). Throws std::runtime_error
// "Cannot read image PATH: reason".
Image readImage(const std::filesystem::path& path);

// The pixel size from the file's header alone; throws as readImage.
ImageSize readImageSize(const std::filesystem::path& path);

// Area-averaging in stored values, for shrinking; each side at least 1.
Image resizeImage(const Image& image, int width, int height);

// Throw std::runtime_error "Cannot write PATH".
void writePng(const std::filesystem::path& path, const Image& image);
void writeJpeg(const std::filesystem::path& path, const Image& image, int quality);  // 1..100

}  // namespace quor
