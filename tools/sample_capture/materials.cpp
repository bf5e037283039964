#include "sample_capture/materials.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "sample_capture/noise.h"

namespace quor::sample {
namespace {

// The covered share of a pixel whose centre lies `inside` within an edge.
double coverage(double inside, double footprint) {
  return std::clamp(0.5 + inside / footprint, 0.0, 1.0);
}

int cellOf(double x) {
  return static_cast<int>(std::floor(x));
}

// A muted colour of any hue.
Vec3 hue(uint32_t hash, uint32_t number = 11) {
  const double angle = 2 * std::numbers::pi * unit(hash, number);
  const double level = 0.36 + 0.26 * unit(hash, number + 1);
  const auto channel = [&](double phase) { return level + 0.12 * std::cos(angle + phase); };
  return {channel(0), channel(2.1), channel(4.2)};
}

// Tints a colour by its cell, so that no two cells look the same.
Vec3 tinted(Vec3 colour, uint32_t hash, double strength) {
  return colour * (1 + strength * (2 * unit(hash, 21) - 1)) + (hue(hash, 23) - Vec3{0.5, 0.5, 0.5}) * (0.5 * strength);
}

// Distance to the nearest border of a cell that spans 0..size.
double insideCell(double offset, double size) {
  return std::min(offset, size - offset);
}

Vec3 bricks(const Material& m, const SurfacePoint& p) {
  constexpr double kWidth = 0.56, kHeight = 0.24, kJoint = 0.012;
  const int row = cellOf(p.v / kHeight);
  const double shifted = p.u + (row & 1) * 0.5 * kWidth;
  const int column = cellOf(shifted / kWidth);
  const uint32_t hash = hashCell(column, row, 1, m.seed);
  const double inside =
      std::min(insideCell(shifted - column * kWidth, kWidth), insideCell(p.v - row * kHeight, kHeight)) - kJoint;
  return mix(m.accent, tinted(m.base, hash, 0.25), coverage(inside, p.footprint));
}

Vec3 wallpaper(const Material& m, const SurfacePoint& p) {
  constexpr double kCell = 0.42;
  const int i = cellOf(p.u / kCell), j = cellOf(p.v / kCell);
  const uint32_t hash = hashCell(i, j, 2, m.seed);
  const double du = p.u - (i + 0.5) * kCell, dv = p.v - (j + 0.5) * kCell;
  const double stripe = coverage(0.09 - std::abs(du), p.footprint);
  Vec3 colour = mix(m.base, m.base * 0.82, stripe);
  const double diamond = 0.07 + 0.05 * unit(hash, 1) - 0.6 * (std::abs(du) + std::abs(dv));
  colour = mix(colour, tinted(m.accent, hash, 0.3), coverage(diamond, p.footprint));
  const double dot = 0.022 + 0.015 * unit(hash, 2) - std::hypot(du, dv);
  colour = mix(colour, m.base * 1.15, coverage(dot, p.footprint));
  const double corner = 0.03 - std::hypot(std::abs(du) - 0.5 * kCell, std::abs(dv) - 0.5 * kCell);
  return mix(colour, m.accent * 0.85, coverage(corner, p.footprint));
}

Vec3 stones(const Material& m, const SurfacePoint& p) {
  constexpr double kSize = 0.42;
  const Cell cell = worleyCell2(p.u / kSize, p.v / kSize, m.seed);
  return mix(m.accent, tinted(m.base, cell.hash, 0.3), coverage(cell.border * kSize - 0.012, p.footprint));
}

Vec3 planks(const Material& m, const SurfacePoint& p) {
  constexpr double kWidth = 0.19, kLength = 1.3, kGap = 0.004;
  const int row = cellOf(p.v / kWidth);
  const double shifted = p.u + kLength * unit(hashCell(row, 0, 3, m.seed));
  const int column = cellOf(shifted / kLength);
  const uint32_t hash = hashCell(column, row, 4, m.seed);
  const Vec3 stretched{p.u * 0.22, p.v, unit(hash, 3) * 50};
  const double grain = fractalNoise(stretched, 0.09, p.footprint, m.seed + 5);
  const Vec3 wood = mix(tinted(m.base, hash, 0.25), m.accent, std::clamp(0.3 + 0.35 * grain, 0.0, 1.0));
  const double inside =
      std::min(insideCell(shifted - column * kLength, kLength), insideCell(p.v - row * kWidth, kWidth)) - kGap;
  return mix(m.accent * 0.85, wood, coverage(inside, p.footprint));
}

Vec3 tiles(const Material& m, const SurfacePoint& p) {
  constexpr double kSize = 0.62, kJoint = 0.008;
  const int i = cellOf(p.u / kSize), j = cellOf(p.v / kSize);
  const uint32_t hash = hashCell(i, j, 6, m.seed);
  const bool dark = ((i + j) & 1) != 0;
  const double du = p.u - (i + 0.5) * kSize, dv = p.v - (j + 0.5) * kSize;
  const double radius = std::hypot(du, dv);
  Vec3 colour = tinted(dark ? m.base : m.accent, hash, 0.25);
  const Vec3 inlay = mix(colour, tinted(dark ? m.accent : m.base, hash + 1, 0.5), 0.6);
  colour = mix(colour, inlay, coverage(0.03 - std::abs(radius - 0.17 - 0.04 * unit(hash, 2)), p.footprint));
  const double centre = unit(hash, 4) < 0.5 ? 0.075 - radius : 0.085 - std::abs(du) - std::abs(dv);
  colour = mix(colour, mix(colour, hue(hash), 0.7), coverage(centre, p.footprint));
  const double inside = 0.5 * kSize - std::max(std::abs(du), std::abs(dv)) - kJoint;
  return mix(m.base * 0.8, colour, coverage(inside, p.footprint));
}

Vec3 rug(const Material& m, const SurfacePoint& p) {
  constexpr double kCell = 0.3;
  const int i = cellOf(p.u / kCell), j = cellOf(p.v / kCell);
  const uint32_t hash = hashCell(i, j, 8, m.seed);
  const double du = std::abs(p.u - (i + 0.5) * kCell), dv = std::abs(p.v - (j + 0.5) * kCell);
  Vec3 colour = mix(m.base, tinted(m.accent, hash, 0.5), coverage(0.115 - 0.7 * (du + dv), p.footprint));
  colour = mix(colour, mix(colour, hue(hash), 0.7), coverage(0.045 - 0.7 * (du + dv), p.footprint));
  const double border = 0.14 - p.edgeDistance;
  const double stripe = 0.025 - std::abs(p.edgeDistance - 0.08);
  colour = mix(colour, m.accent * 0.6, coverage(border, p.footprint));
  return mix(colour, m.base * 1.2, coverage(stripe, p.footprint));
}

// One layer of scattered discs and slabs, one to a cell.
Vec3 scatter(Vec3 colour, const SurfacePoint& p, double size, uint32_t seed) {
  const int i = cellOf(p.u / size), j = cellOf(p.v / size);
  const uint32_t hash = hashCell(i, j, 9, seed);
  const double reach = size * (0.22 + 0.18 * unit(hash, 1));
  const double slack = 0.5 * size - reach;
  const double du = p.u - (i + 0.5) * size - slack * (2 * unit(hash, 2) - 1);
  const double dv = p.v - (j + 0.5) * size - slack * (2 * unit(hash, 3) - 1);
  const double inside = unit(hash, 4) < 0.55
                            ? reach - std::hypot(du, dv)
                            : std::min(reach - std::abs(du), reach * (0.3 + 0.5 * unit(hash, 5)) - std::abs(dv));
  return unit(hash, 6) < 0.85 ? mix(colour, hue(hash), coverage(inside, p.footprint)) : colour;
}

Vec3 poster(const Material& m, const SurfacePoint& p) {
  const double sky = fractalNoise(p.local, 0.5, p.footprint, m.seed + 10);
  Vec3 colour = mix(m.base, m.accent, std::clamp(0.5 + 0.6 * sky, 0.0, 1.0));
  colour = scatter(colour, p, 0.36, m.seed + 11);
  colour = scatter(colour, p, 0.21, m.seed + 12);
  return mix(Vec3{0.42, 0.31, 0.22}, colour, coverage(p.edgeDistance - 0.045, p.footprint));
}

Vec3 books(const Material& m, const SurfacePoint& p) {
  constexpr double kShelf = 0.4, kSpine = 0.13, kBoard = 0.03;
  const int shelf = cellOf(p.v / kShelf);
  const double height = p.v - shelf * kShelf;
  const int slot = cellOf(p.u / kSpine);
  const double offset = p.u - slot * kSpine;
  const uint32_t hash = hashCell(slot, shelf, 13, m.seed);
  const double top = kShelf * (0.7 + 0.2 * unit(hash, 1));
  Vec3 colour = hue(hash);
  const double label = kShelf * (0.2 + 0.35 * unit(hash, 2));
  colour = mix(colour, mix(colour, hue(hash, 31), 0.6) * 1.15, coverage(0.03 - std::abs(height - label), p.footprint));
  const double inside = std::min(insideCell(offset, kSpine) - 0.003, top - height);
  colour = mix(m.accent, colour, coverage(inside, p.footprint));
  const double board = std::max(kBoard - height, 0.05 - p.edgeDistance);
  return mix(colour, m.base, coverage(board, p.footprint));
}

Vec3 crate(const Material& m, const SurfacePoint& p) {
  const Vec3 boards = planks(m, p);
  Vec3 frame = mix(m.accent, m.base, 0.5) * (1 + 0.3 * fractalNoise(p.local, 0.12, p.footprint, m.seed + 15));
  const double seam = 0.008 - std::abs(p.edgeDistance - 0.07);
  frame = mix(frame, m.accent * 0.5, coverage(seam, p.footprint));
  return mix(boards, frame, coverage(0.07 - p.edgeDistance, p.footprint));
}

Vec3 marble(const Material& m, const SurfacePoint& p) {
  const double bend = fractalNoise(p.local, 0.3, p.footprint, m.seed + 16);
  const double wave = std::sin(14 * (p.local.x + 0.6 * p.local.z) + 5 * bend);
  return mix(m.base, m.accent, std::clamp(0.5 + 0.45 * wave, 0.0, 1.0));
}

Vec3 spots(const Material& m, const SurfacePoint& p) {
  constexpr double kCell = 0.13;
  const int x = cellOf(p.local.x / kCell), y = cellOf(p.local.y / kCell), z = cellOf(p.local.z / kCell);
  const uint32_t hash = hashCell(x, y, z, m.seed + 17);
  const Vec3 centre{(x + 0.5) * kCell, (y + 0.5) * kCell, (z + 0.5) * kCell};
  const double inside = kCell * (0.32 + 0.17 * unit(hash, 1)) - length(p.local - centre);
  return mix(m.base, mix(m.accent, hue(hash), 0.6), coverage(inside, p.footprint));
}

Vec3 mosaic(const Material& m, const SurfacePoint& p) {
  constexpr double kSize = 0.17;
  const Cell cell = worleyCell3(p.local * (1 / kSize), m.seed);
  const Vec3 piece = mix(mix(m.base, m.accent, unit(cell.hash, 1)), hue(cell.hash), 0.5);
  return mix(m.base * 0.8, piece, coverage(cell.border * kSize - 0.006, p.footprint));
}

Vec3 pattern(const Material& m, const SurfacePoint& p) {
  switch (m.pattern) {
    case Pattern::Bricks:
      return bricks(m, p);
    case Pattern::Wallpaper:
      return wallpaper(m, p);
    case Pattern::Stones:
      return stones(m, p);
    case Pattern::Planks:
      return planks(m, p);
    case Pattern::Tiles:
      return tiles(m, p);
    case Pattern::Rug:
      return rug(m, p);
    case Pattern::Poster:
      return poster(m, p);
    case Pattern::Books:
      return books(m, p);
    case Pattern::Crate:
      return crate(m, p);
    case Pattern::Marble:
      return marble(m, p);
    case Pattern::Spots:
      return spots(m, p);
    case Pattern::Mosaic:
      return mosaic(m, p);
    case Pattern::Plain:
      break;
  }
  return m.base;
}

}  // namespace

Vec3 albedo(const Material& material, const SurfacePoint& point) {
  if (material.pattern == Pattern::Plain) return material.base;
  const double weathering = fractalNoise(point.local, 0.6, point.footprint, material.seed + 40);
  return pattern(material, point) * (1 + 0.2 * weathering);
}

}  // namespace quor::sample
