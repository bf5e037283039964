// From latitude, longitude and altitude on the WGS 84 ellipsoid to metres in a frame that is flat around an origin.
#pragma once

#include <Eigen/Core>

#include "project/georeference.h"

namespace quor {

// Earth-centred, earth-fixed, in metres.
Eigen::Vector3d ecefFromGeodetic(const GeoPosition& position);

// x points east, y north and z up at the origin, in metres.
class LocalFrame {
 public:
  explicit LocalFrame(const GeoPosition& origin);

  Eigen::Vector3d place(const GeoPosition& position) const;

 private:
  Eigen::Vector3d origin_;
  Eigen::Matrix3d localFromEcef_;
};

}  // namespace quor
