// What a pass around the training is held against: a plain copy in host memory and a plain sequential write or read.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "base/files/sync_file.h"

namespace quor::bench {

class TemporaryFolder {
 public:
  TemporaryFolder()
      : path_(std::filesystem::temp_directory_path() / ("ombrelux-bench-" + std::to_string(std::random_device{}()))) {
    std::filesystem::create_directory(path_);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  std::filesystem::path operator/(const char* name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

template <class Work>
double milliseconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

inline uint64_t digest(std::span<const char> bytes) {  // FNV-1a
  uint64_t hash = 0xcbf29ce484222325u;
  for (const char byte : bytes) hash = (hash ^ static_cast<uint8_t>(byte)) * 0x100000001b3u;
  return hash;
}

// The least time that so many bytes take.
class Floors {
 public:
  explicit Floors(const TemporaryFolder& folder) : file_(folder / "floor"), from_(kBlock, 1), to_(kBlock, 2) {}

  void copy(double bytes) {
    forBlocks(bytes, [&](size_t n) { std::memcpy(to_.data(), from_.data(), n); });
  }
  void write(double bytes, bool onDisk) {
    {
      std::ofstream stream(file_, std::ios::binary | std::ios::trunc);
      forBlocks(bytes, [&](size_t n) { stream.write(from_.data(), static_cast<std::streamsize>(n)); });
    }
    if (onDisk) syncFile(file_);
  }
  void read(const std::filesystem::path& path, double bytes) {
    std::ifstream stream(path, std::ios::binary);
    forBlocks(bytes, [&](size_t n) { stream.read(to_.data(), static_cast<std::streamsize>(n)); });
  }

 private:
  static constexpr size_t kBlock = 64 << 20;  // beyond the caches

  template <class Work>
  static void forBlocks(double bytes, Work work) {
    for (auto left = static_cast<size_t>(bytes); left > 0; left -= std::min(left, kBlock)) work(std::min(left, kBlock));
  }

  std::filesystem::path file_;
  std::vector<char> from_, to_;
};

}  // namespace quor::bench
