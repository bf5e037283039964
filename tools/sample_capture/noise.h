// Repeatable randomness in space: hashed lattices, gradient noise (Perlin 2002) and cell patterns (Worley 1996).
#pragma once

#include <cstdint>

#include "sample_capture/vec3.h"

namespace quor::sample {

// A well-mixed word for a lattice cell.
uint32_t hashCell(int x, int y, int z, uint32_t seed);

// The number-th value in [0, 1) drawn from a hash.
double unit(uint32_t hash, uint32_t number = 0);

// Gradient noise of wavelength 1, about -1..1.
double gradientNoise(Vec3 p, uint32_t seed);

// Up to five octaves of gradient noise from `wavelength` downwards, about -1..1. Octaves finer than `footprint` (the
// size of a pixel on the surface, in the unit of p) are left out, so that nothing finer than a pixel can alias.
double fractalNoise(Vec3 p, double wavelength, double footprint, uint32_t seed);

// The irregular cell of a unit lattice in which p lies.
struct Cell {
  uint32_t hash = 0;
  double border = 0;  // distance to the nearest border with another cell, approximately
};
Cell worleyCell2(double u, double v, uint32_t seed);
Cell worleyCell3(Vec3 p, uint32_t seed);

}  // namespace quor::sample
