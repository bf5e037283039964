#include "gs/files/splat_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

#include "base/files/atomic_file.h"
#include "gs/splats/sh.h"

namespace quor::gs {

static_assert(std::endian::native == std::endian::little, "values are copied into little-endian files as they stand");

namespace {

constexpr size_t kRecordBytes = 32;
constexpr uint64_t kBlock = 65536;

double sigmoid(float x) {
  return 1.0 / (1.0 + std::exp(-static_cast<double>(x)));
}

// Not a number becomes 0.
char byteOf(double value) {
  const double clamped = value > 0 ? std::min(value, 255.0) : 0.0;
  return static_cast<char>(static_cast<uint8_t>(clamped));
}

struct Ranked {
  double importance;
  uint64_t index;
};

// Opacity times volume, so that a viewer that draws a part of the file draws what matters most.
std::vector<Ranked> byImportance(const GaussianSet& set) {
  std::vector<Ranked> order(set.count);
  for (uint64_t i = 0; i < set.count; ++i) {
    const float* s = &set.scales[3 * i];
    const double value = sigmoid(set.opacities[i]) * std::exp(static_cast<double>(s[0]) + s[1] + s[2]);
    order[i] = {std::isnan(value) ? -1.0 : value, i};
  }
  std::sort(order.begin(), order.end(), [](const Ranked& a, const Ranked& b) {
    return a.importance > b.importance || (a.importance == b.importance && a.index < b.index);
  });
  return order;
}

void fillRecord(const GaussianSet& set, uint64_t i, char* out) {
  std::memcpy(out, &set.positions[3 * i], 12);
  for (size_t a = 0; a < 3; ++a) {
    const float scale = std::exp(set.scales[3 * i + a]);
    std::memcpy(out + 12 + 4 * a, &scale, 4);
    out[24 + a] = byteOf((static_cast<double>(set.shDc[3 * i + a]) * kShC0 + 0.5) * 255.0);
  }
  out[27] = byteOf(sigmoid(set.opacities[i]) * 255.0);
  const float* q = &set.rotations[4 * i];
  double squares = 0;
  for (size_t r = 0; r < 4; ++r) squares += static_cast<double>(q[r]) * q[r];
  const double length = std::max(std::sqrt(squares), 1e-12);
  for (size_t r = 0; r < 4; ++r) out[28 + r] = byteOf(q[r] / length * 128.0 + 128.0);
}

}  // namespace

void writeSplat(const std::filesystem::path& path, const GaussianSet& set) {
  AtomicFile file(path);
  const std::vector<Ranked> order = byImportance(set);
  std::vector<char> block(std::min(set.count, kBlock) * kRecordBytes);
  for (uint64_t first = 0; first < set.count && file.good(); first += kBlock) {
    const uint64_t n = std::min(kBlock, set.count - first);
    for (uint64_t i = 0; i < n; ++i) fillRecord(set, order[first + i].index, &block[i * kRecordBytes]);
    file.stream().write(block.data(), static_cast<std::streamsize>(n * kRecordBytes));
  }
  file.commit();
}

}  // namespace quor::gs
