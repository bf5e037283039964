// The flat views that are cut from an equirectangular sphere, and the camera seeds of 360-degree and fisheye footage.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "settings/settings.h"

namespace quor {

struct SphereView {
  double yaw = 0;    // degrees, (-180, 180], to the right of the sphere's middle
  double pitch = 0;  // degrees, up
  std::string name;  // "v00", "v01", ..., "vup", "vdn"
};

// From the sphere's frame (x right, y down, z to its middle) to the view's camera, w x y z.
std::array<double, 4> rotationOf(const SphereView& view);

std::vector<SphereView> sphereViews(const IngestSettings& settings);
// Pixels of a view's edge: even, at least 256.
int sphereViewSize(const IngestSettings& settings);
// The settings for a sphere of that width in pixels: where views are to follow the sphere, they are no larger than one
// and a half times what its middle holds (a view's corners hold more).
IngestSettings fittedTo(const IngestSettings& settings, int sphereWidth);
// fx, fy, cx, cy of a view in pixels: f = (size / 2) / tan(fieldOfView / 2).
std::array<double, 4> sphereViewCamera(const IngestSettings& settings);

// OPENCV_FISHEYE parameters (fx, fy, cx, cy, k1..k4) of an equidistant lens, r = f * theta, whose angle is reached at
// half the side of its square image.
std::vector<double> fisheyeCamera(const IngestSettings& settings, int lensSize);

}  // namespace quor
