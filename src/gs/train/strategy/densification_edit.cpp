#include "gs/train/strategy/densification_edit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numeric>
#include <stdexcept>

#include "gs/train/kernels/interfaces.h"

namespace quor::gs {
namespace {

void appendRow(std::vector<float>& values, size_t width, size_t i) {
  for (size_t k = 0; k < width; ++k) values.push_back(values[i * width + k]);
}

// The most opaque that blending takes a splat for; 1 has no logit.
constexpr double kMaxAlpha = 0.999;

// The splat's axis `k` in the world: column k of R(q).
std::array<double, 3> axisOf(const float* rotation, size_t k) {
  std::array<double, 4> q{};
  double norm = 0;
  for (size_t j = 0; j < 4; ++j) {
    q[j] = static_cast<double>(rotation[j]);
    norm += q[j] * q[j];
  }
  for (double& value : q) value /= std::sqrt(std::max(norm, 1e-12));
  const double w = q[0];
  const std::array<double, 3> u = {q[1], q[2], q[3]};
  // e + 2 w (u x e) + 2 u x (u x e) for the unit vector e = e_k
  const size_t next = (k + 1) % 3, last = (k + 2) % 3;
  std::array<double, 3> axis{};
  axis[k] = 1 - 2 * (u[next] * u[next] + u[last] * u[last]);
  axis[next] = 2 * (u[k] * u[next] + w * u[last]);
  axis[last] = 2 * (u[k] * u[last] - w * u[next]);
  return axis;
}

void copyRow(std::vector<float>& values, size_t width, size_t to, size_t from) {
  for (size_t k = 0; k < width; ++k) values[to * width + k] = values[from * width + k];
}

}  // namespace

DensificationEdit DensificationEdit::fetch(ComputeStream& stream, const SplatStore& splats, GpuBuffer& staging,
                                           std::span<const BufferRef> statistics) {
  constexpr Group kFetched[] = {kPositions, kScales, kRotations, kOpacities};
  const uint32_t n = splats.count();
  uint64_t words = n * (1 + statistics.size());
  for (const Group g : kFetched) words += n * kGroupWidths[g];
  if (staging.size() < words * 4) {
    staging = {};
    staging = GpuBuffer(splats.context(), words * 4, BufferKind::Readback, "pass staging");
  }
  GpuBuffer flags(splats.context(), uint64_t{n} * 4, BufferKind::Device, "diverged flags");
  stream.dispatch1D(kernels::FlagDiverged{.position = &splats.value(kPositions),
                                          .scale = &splats.value(kScales),
                                          .rotation = &splats.value(kRotations),
                                          .opacity = &splats.value(kOpacities),
                                          .shDc = &splats.value(kShDc),
                                          .shRest = &splats.value(kShRest),
                                          .flag = &flags},
                    {n}, n);

  uint64_t end = 0;  // of what has been recorded, in bytes
  const auto record = [&](const GpuBuffer& from, size_t width) {
    stream.copy(from, staging, n * width * 4, 0, end);
    end += n * width * 4;
  };
  for (const Group g : kFetched) record(splats.value(g), kGroupWidths[g]);
  for (const BufferRef buffer : statistics) record(*buffer, 1);
  record(flags, 1);
  stream.submit();

  DensificationEdit rows;
  const auto* next = static_cast<const char*>(staging.mapped());
  const auto take = [&](auto& values, size_t width) {
    values.resize(n * width);
    if (!values.empty()) std::memcpy(values.data(), next, n * width * 4);
    next += n * width * 4;
  };
  take(rows.positions, 3);
  take(rows.scales, 3);
  take(rows.rotations, 4);
  take(rows.opacities, 1);
  rows.statistics.resize(statistics.size());
  for (std::vector<float>& values : rows.statistics) take(values, 1);
  take(rows.diverged_, 1);
  rows.sources.resize(n);
  std::iota(rows.sources.begin(), rows.sources.end(), 0u);
  return rows;
}

uint64_t DensificationEdit::resetDiverged(float opacity, SplitMix64& random) {
  std::vector<size_t> sound;
  for (size_t i = 0; i < diverged_.size(); ++i) {
    if (diverged_[i] == 0) sound.push_back(i);
  }
  if (sound.empty()) throw std::runtime_error("The training diverged: no splat has finite parameters any more.");
  for (size_t i = 0; i < diverged_.size(); ++i) {
    if (diverged_[i] == 0) continue;
    copyOver(i, sound[random.below(sound.size())]);
    setOpacity(i, opacity);
  }
  return diverged_.size() - sound.size();
}

float DensificationEdit::opacity(size_t i) const {
  return 1.0f / (1.0f + std::exp(-opacities[i]));
}

float DensificationEdit::largestScale(size_t i) const {
  return std::exp(std::max({scales[3 * i], scales[3 * i + 1], scales[3 * i + 2]}));
}

void DensificationEdit::setOpacity(size_t i, float opacity) {
  opacities[i] = std::log(opacity / (1.0f - opacity));
}

size_t DensificationEdit::appendCopy(size_t i) {
  appendRow(positions, 3, i);
  appendRow(scales, 3, i);
  appendRow(rotations, 4, i);
  appendRow(opacities, 1, i);
  sources.push_back(sources[i] | kFreshRow);
  return count() - 1;
}

void DensificationEdit::copyOver(size_t i, size_t from) {
  copyRow(positions, 3, i, from);
  copyRow(scales, 3, i, from);
  copyRow(rotations, 4, i, from);
  copyRow(opacities, 1, i, from);
  sources[i] = sources[from] | kFreshRow;
}

size_t DensificationEdit::splitLongAxis(size_t i) {
  const auto scale = scales.begin() + static_cast<ptrdiff_t>(3 * i);
  const size_t k = static_cast<size_t>(std::max_element(scale, scale + 3) - scale);
  const double reach = kSplitReach * std::exp(static_cast<double>(scales[3 * i + k]));
  const std::array<double, 3> axis = axisOf(&rotations[4 * i], k);
  scales[3 * i + k] += static_cast<float>(0.5 * std::log(1 - kSplitReach * kSplitReach));
  setOpacity(i, static_cast<float>(splitOpacity(static_cast<double>(opacity(i)))));
  const size_t half = appendCopy(i);
  sources[half] = sources[i];
  for (size_t a = 0; a < 3; ++a) {
    positions[3 * i + a] -= static_cast<float>(reach * axis[a]);
    positions[3 * half + a] += static_cast<float>(reach * axis[a]);
  }
  return half;
}

void DensificationEdit::keepOnly(const std::vector<bool>& keep) {
  size_t to = 0;
  for (size_t i = 0; i < count(); ++i) {
    if (!keep[i]) continue;
    copyRow(positions, 3, to, i);
    copyRow(scales, 3, to, i);
    copyRow(rotations, 4, to, i);
    copyRow(opacities, 1, to, i);
    sources[to++] = sources[i];
  }
  positions.resize(3 * to);
  scales.resize(3 * to);
  rotations.resize(4 * to);
  opacities.resize(to);
  sources.resize(to);
}

void DensificationEdit::apply(ComputeStream& stream, Transfer& transfer, SplatStore& splats, uint64_t cap) const {
  static constexpr Group kUploaded[] = {kPositions, kScales, kOpacities};
  if (count() > splats.capacity()) splats.grow(stream, grownCapacity(count(), splats.capacity(), cap));
  splats.rearrange(stream, transfer, sources, kUploaded);
  splats.uploadGroup(transfer, kPositions, positions);
  splats.uploadGroup(transfer, kScales, scales);
  splats.uploadGroup(transfer, kOpacities, opacities);
}

double splitOpacity(double opacity) {
  // (1 - half * falloff)^2 = 1 - opacity, where the old centre is kSplitReach off along an axis that has become
  // shorter.
  const double falloff = std::exp(-0.5 * kSplitReach * kSplitReach / (1 - kSplitReach * kSplitReach));
  const double half = (1 - std::sqrt(1 - opacity)) / falloff;
  return std::min({half, opacity, kMaxAlpha});
}

uint32_t grownCapacity(uint64_t needed, uint64_t current, uint64_t cap) {
  const uint64_t wanted = std::max(needed + needed / 2, current + current / 2);
  return static_cast<uint32_t>(std::max(std::min(wanted, cap), needed));
}

}  // namespace quor::gs
