// The textures of the room, as functions of a place on a surface. All but the plain one have detail at several scales
// and none of these repeats exactly, so that feature matching finds its way; every edge is softened over a pixel, so
// that nothing aliases.
#pragma once

#include <cstdint>

#include "sample_capture/vec3.h"

namespace quor::sample {

// Where on a shape a ray has met it. Lengths in metres.
struct SurfacePoint {
  Vec3 local;               // in the shape's own frame
  double u = 0, v = 0;      // along the surface
  double edgeDistance = 0;  // to the nearest edge of the face; large on shapes without edges
  double footprint = 0;     // size of a pixel on the surface
};

enum class Pattern {
  Bricks,
  Wallpaper,
  Stones,
  Planks,
  Tiles,
  Rug,
  Poster,
  Books,
  Crate,
  Marble,
  Spots,
  Mosaic,
  Plain
};

struct Material {
  Pattern pattern = Pattern::Planks;
  uint32_t seed = 0;
  Vec3 base;    // 0..1
  Vec3 accent;  // 0..1
};

// Display values (sRGB), about 0..1, before lighting.
Vec3 albedo(const Material& material, const SurfacePoint& point);

}  // namespace quor::sample
