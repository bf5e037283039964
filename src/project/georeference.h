// Where a capture lies on the Earth: what photographs say of their own places, and the frame that a camera solve was
// moved into because of it.
#pragma once

#include <cstddef>

#include "settings/json_members.h"

namespace quor {

struct GeoPosition {
  double latitude = 0, longitude = 0;  // degrees, WGS 84; north and east are positive
  double altitude = 0;                 // metres, above what the camera counts from
};

// A solved model in metres about an origin: x points east, y north, z up. Coordinates stay small, so that the single
// precision of scenes is enough; the origin leads back to the Earth.
struct Georeference {
  GeoPosition origin;
  double metresPerUnit = 1;  // of the model as COLMAP solved it
  size_t positions = 0;      // photographs of the model that say where they were taken
  size_t agreeing = 0;       // those of them that the frame was fitted to
  // Metres between the agreeing photographs' cameras and what they say.
  double medianResidual = 0, residual90 = 0;
};

// The object under "georeference" in project.json, which is also the whole of output/georeference.json.
Json toJson(const Georeference& georeference);
// Throws std::runtime_error for a member of a wrong type; missing ones keep their defaults.
Georeference readGeoreference(const Json& object);

// [latitude, longitude, altitude]
Json toJson(const GeoPosition& position);
GeoPosition readGeoPosition(const Json& list);  // throws std::runtime_error

}  // namespace quor
