#include "sfm/georeference/wgs84.h"

#include <cmath>
#include <numbers>

namespace quor {
namespace {

// NIMA TR8350.2, "Department of Defense World Geodetic System 1984".
constexpr double kSemiMajorAxis = 6378137;  // metres
constexpr double kFlattening = 1 / 298.257223563;
constexpr double kRadians = std::numbers::pi / 180;

}  // namespace

Eigen::Vector3d ecefFromGeodetic(const GeoPosition& position) {
  constexpr double kEccentricitySquared = kFlattening * (2 - kFlattening);
  const double latitude = position.latitude * kRadians, longitude = position.longitude * kRadians;
  const double sine = std::sin(latitude), cosine = std::cos(latitude);
  const double normal = kSemiMajorAxis / std::sqrt(1 - kEccentricitySquared * sine * sine);
  const double fromAxis = (normal + position.altitude) * cosine;
  return {fromAxis * std::cos(longitude), fromAxis * std::sin(longitude),
          (normal * (1 - kEccentricitySquared) + position.altitude) * sine};
}

LocalFrame::LocalFrame(const GeoPosition& origin) : origin_(ecefFromGeodetic(origin)) {
  const double latitude = origin.latitude * kRadians, longitude = origin.longitude * kRadians;
  const double sinLatitude = std::sin(latitude), cosLatitude = std::cos(latitude);
  const double sinLongitude = std::sin(longitude), cosLongitude = std::cos(longitude);
  localFromEcef_ << -sinLongitude, cosLongitude, 0,                           //
      -sinLatitude * cosLongitude, -sinLatitude * sinLongitude, cosLatitude,  //
      cosLatitude * cosLongitude, cosLatitude * sinLongitude, sinLatitude;
}

Eigen::Vector3d LocalFrame::place(const GeoPosition& position) const {
  return localFromEcef_ * (ecefFromGeodetic(position) - origin_);
}

}  // namespace quor
