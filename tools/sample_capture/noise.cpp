#include "sample_capture/noise.h"

#include <algorithm>
#include <cmath>

namespace quor::sample {
namespace {

double fade(double t) {
  return t * t * t * (t * (t * 6 - 15) + 10);
}

double lerp(double a, double b, double t) {
  return a + (b - a) * t;
}

double cornerValue(int x, int y, int z, double dx, double dy, double dz, uint32_t seed) {
  const uint32_t h = hashCell(x, y, z, seed);
  const auto component = [h](int shift) { return static_cast<double>((h >> shift) & 0xffU) * (2.0 / 255.0) - 1.0; };
  return component(0) * dx + component(8) * dy + component(16) * dz;
}

// Keeps the two nearest feature points while a lattice neighbourhood is walked.
struct TwoNearest {
  double first = 1e9, second = 1e9;
  uint32_t hash = 0;

  void add(double distance, uint32_t h) {
    if (distance < first) {
      second = first;
      first = distance;
      hash = h;
    } else {
      second = std::min(second, distance);
    }
  }
  Cell cell() const { return {hash, 0.5 * (second - first)}; }
};

}  // namespace

uint32_t hashCell(int x, int y, int z, uint32_t seed) {
  uint32_t h = seed ^ (static_cast<uint32_t>(x) * 0x8da6b343U) ^ (static_cast<uint32_t>(y) * 0xd8163841U) ^
               (static_cast<uint32_t>(z) * 0xcb1ab31fU);
  h ^= h >> 16;
  h *= 0x7feb352dU;
  h ^= h >> 15;
  h *= 0x846ca68bU;
  h ^= h >> 16;
  return h;
}

double unit(uint32_t hash, uint32_t number) {
  const uint32_t h = number == 0 ? hash : hashCell(static_cast<int>(number), 0, 0, hash);
  return static_cast<double>(h >> 8) * 0x1.0p-24;
}

double gradientNoise(Vec3 p, uint32_t seed) {
  const double fx = std::floor(p.x), fy = std::floor(p.y), fz = std::floor(p.z);
  const int x = static_cast<int>(fx), y = static_cast<int>(fy), z = static_cast<int>(fz);
  const double dx = p.x - fx, dy = p.y - fy, dz = p.z - fz;
  const double u = fade(dx), v = fade(dy), w = fade(dz);
  const auto edge = [&](int j, int k) {
    return lerp(cornerValue(x, y + j, z + k, dx, dy - j, dz - k, seed),
                cornerValue(x + 1, y + j, z + k, dx - 1, dy - j, dz - k, seed), u);
  };
  return 1.4 * lerp(lerp(edge(0, 0), edge(1, 0), v), lerp(edge(0, 1), edge(1, 1), v), w);
}

double fractalNoise(Vec3 p, double wavelength, double footprint, uint32_t seed) {
  double sum = 0;
  double amplitude = 1;
  for (uint32_t octave = 0; octave < 5; ++octave) {
    const double visible = std::clamp(wavelength / footprint - 1.5, 0.0, 1.0);
    if (visible <= 0) break;
    sum += amplitude * visible * gradientNoise(p * (1.0 / wavelength), seed + octave * 0x9e3779b9U);
    amplitude *= 0.55;
    wavelength *= 0.5;
  }
  return sum;
}

Cell worleyCell2(double u, double v, uint32_t seed) {
  const int x = static_cast<int>(std::floor(u)), y = static_cast<int>(std::floor(v));
  TwoNearest nearest;
  for (int j = -1; j <= 1; ++j) {
    for (int i = -1; i <= 1; ++i) {
      const uint32_t h = hashCell(x + i, y + j, 7, seed);
      const double du = x + i + 0.1 + 0.8 * unit(h, 1) - u;
      const double dv = y + j + 0.1 + 0.8 * unit(h, 2) - v;
      nearest.add(std::hypot(du, dv), h);
    }
  }
  return nearest.cell();
}

Cell worleyCell3(Vec3 p, uint32_t seed) {
  const int x = static_cast<int>(std::floor(p.x)), y = static_cast<int>(std::floor(p.y));
  const int z = static_cast<int>(std::floor(p.z));
  TwoNearest nearest;
  for (int k = -1; k <= 1; ++k) {
    for (int j = -1; j <= 1; ++j) {
      for (int i = -1; i <= 1; ++i) {
        const uint32_t h = hashCell(x + i, y + j, z + k, seed);
        const Vec3 feature{x + i + 0.1 + 0.8 * unit(h, 1), y + j + 0.1 + 0.8 * unit(h, 2),
                           z + k + 0.1 + 0.8 * unit(h, 3)};
        nearest.add(length(feature - p), h);
      }
    }
  }
  return nearest.cell();
}

}  // namespace quor::sample
