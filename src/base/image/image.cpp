#include "base/image/image.h"

#include <cerrno>
#include <fstream>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "base/files/atomic_file.h"
#include "base/files/file_bytes.h"
#include "base/files/paths.h"

// One reader for the formats that photographs come in; the rest of the library would only be more to attack.
#define STBI_ONLY_JPEG
#define STBI_ONLY_PNG
#define STBI_ONLY_BMP
#define STBI_ONLY_TGA
#define STBI_NO_STDIO
#define STBI_NO_LINEAR
#define STBI_FAILURE_USERMSG
#define STBI_WRITE_NO_STDIO
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_RESIZE_IMPLEMENTATION
#if __has_include(<stb/stb_image.h>)
#include <stb/stb_image.h>
#include <stb/stb_image_write.h>
#else  // vcpkg has no folder for them
#include <stb_image.h>
#include <stb_image_write.h>
#endif
#if __has_include(<stb/stb_image_resize.h>)
#include <stb/stb_image_resize.h>
#elif __has_include(<stb/stb_image_resize2.h>)  // since 2023
#include <stb/stb_image_resize2.h>
#else
#include <stb_image_resize2.h>
#endif

namespace quor {
namespace {

[[noreturn]] void throwUnreadable(const std::filesystem::path& path, const std::string& reason) {
  throw std::runtime_error("Cannot read image " + toUtf8(path) + ": " + reason);
}

ImageDecoder& otherFormats() {
  static ImageDecoder decoder;
  return decoder;
}

void checkPicture(const Image& image) {
  if (image.width < 1 || image.height < 1 ||
      image.rgb.size() != static_cast<size_t>(image.width) * static_cast<size_t>(image.height) * 3) {
    throw std::invalid_argument("An image's bytes do not match its size");
  }
}

int readFromStream(void* stream, char* data, int size) {
  auto& file = *static_cast<std::ifstream*>(stream);
  file.read(data, size);
  return static_cast<int>(file.gcount());
}
void skipInStream(void* stream, int count) {
  static_cast<std::ifstream*>(stream)->seekg(count, std::ios::cur);
}
int streamEnded(void* stream) {
  return static_cast<std::ifstream*>(stream)->good() ? 0 : 1;
}

void writeToStream(void* stream, void* data, int size) {
  static_cast<std::ostream*>(stream)->write(static_cast<const char*>(data), size);
}

constexpr AtomicFileTexts kWriteTexts = {"Cannot write ", "Cannot write ", " (disk full?)", "Cannot write "};

Image decode(const std::vector<uint8_t>& bytes) {
  Image image;
  int channels = 0;
  const std::unique_ptr<stbi_uc, void (*)(void*)> pixels(
      stbi_load_from_memory(bytes.data(), static_cast<int>(bytes.size()), &image.width, &image.height, &channels, 3),
      stbi_image_free);
  if (!pixels) throw std::runtime_error(stbi_failure_reason());
  image.rgb.assign(pixels.get(),
                   pixels.get() + static_cast<size_t>(image.width) * static_cast<size_t>(image.height) * 3);
  return image;
}

// For a file that stb has just refused.
Image decodeOther(const std::filesystem::path& path) {
  const char* reason = stbi_failure_reason();
  if (const ImageDecoder& decoder = otherFormats()) {
    if (std::optional<Image> image = decoder(path)) return std::move(*image);
  }
  throw std::runtime_error(reason);
}

}  // namespace

void checkImageSize(int width, int height) {
  if (int64_t{width} * height * 3 > kLargestImageBytes) {
    throw std::runtime_error(std::to_string(width) + " x " + std::to_string(height) + " pixels are too many");
  }
}

void registerImageDecoder(ImageDecoder decoder) {
  otherFormats() = std::move(decoder);
}

Image readImage(const std::filesystem::path& path) try {
  const std::vector<uint8_t> bytes = readFileBytes(path, kLargestImageBytes);
  ImageSize size;
  int channels = 0;
  if (!stbi_info_from_memory(bytes.data(), static_cast<int>(bytes.size()), &size.width, &size.height, &channels)) {
    return decodeOther(path);
  }
  checkImageSize(size.width, size.height);
  return decode(bytes);
} catch (const std::runtime_error& e) {
  throwUnreadable(path, e.what());
}

ImageSize readImageSize(const std::filesystem::path& path) try {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(std::error_code(errno, std::generic_category()).message());
  constexpr stbi_io_callbacks kCallbacks = {readFromStream, skipInStream, streamEnded};
  ImageSize size;
  int channels = 0;
  if (!stbi_info_from_callbacks(&kCallbacks, &file, &size.width, &size.height, &channels)) {
    const Image image = decodeOther(path);
    size = {image.width, image.height};
  }
  checkImageSize(size.width, size.height);
  return size;
} catch (const std::runtime_error& e) {
  throwUnreadable(path, e.what());
}

Image resizeImage(const Image& image, int width, int height) {
  checkPicture(image);
  if (width < 1 || height < 1 || int64_t{width} * height * 3 > kLargestImageBytes) {
    throw std::invalid_argument("An image cannot be resized to " + std::to_string(width) + " x " +
                                std::to_string(height));
  }
  if (width == image.width && height == image.height) return image;
  Image result{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * static_cast<size_t>(height) * 3)};
  const auto filter = [](int from, int to) { return to < from ? STBIR_FILTER_BOX : STBIR_FILTER_TRIANGLE; };
#ifdef STBIR_INCLUDE_STB_IMAGE_RESIZE_H
  const bool resized =
      stbir_resize(image.rgb.data(), image.width, image.height, 0, result.rgb.data(), width, height, 0,
                   STBIR_TYPE_UINT8, 3, STBIR_ALPHA_CHANNEL_NONE, 0, STBIR_EDGE_CLAMP, STBIR_EDGE_CLAMP,
                   filter(image.width, width), filter(image.height, height), STBIR_COLORSPACE_LINEAR, nullptr) != 0;
#else
  STBIR_RESIZE resize;
  stbir_resize_init(&resize, image.rgb.data(), image.width, image.height, 0, result.rgb.data(), width, height, 0,
                    STBIR_RGB, STBIR_TYPE_UINT8);
  stbir_set_edgemodes(&resize, STBIR_EDGE_CLAMP, STBIR_EDGE_CLAMP);
  stbir_set_filters(&resize, filter(image.width, width), filter(image.height, height));
  const bool resized = stbir_resize_extended(&resize) != 0;
#endif
  if (!resized) throw std::bad_alloc();
  return result;
}

void writePng(const std::filesystem::path& path, const Image& image) {
  checkPicture(image);
  AtomicFile file(path, kWriteTexts);
  if (!stbi_write_png_to_func(writeToStream, &file.stream(), image.width, image.height, 3, image.rgb.data(), 0)) {
    throw std::bad_alloc();
  }
  file.commit();
}

void writeJpeg(const std::filesystem::path& path, const Image& image, int quality) {
  checkPicture(image);
  AtomicFile file(path, kWriteTexts);
  if (!stbi_write_jpg_to_func(writeToStream, &file.stream(), image.width, image.height, 3, image.rgb.data(), quality)) {
    throw std::bad_alloc();
  }
  file.commit();
}

}  // namespace quor
