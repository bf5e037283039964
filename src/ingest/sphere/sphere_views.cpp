#include "ingest/sphere/sphere_views.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "base/text/text.h"

namespace quor {

std::vector<SphereView> sphereViews(const IngestSettings& settings) {
  const int count = std::max(settings.viewsPerFrame, 3);
  std::vector<SphereView> views;
  for (int i = 0; i < count; ++i) {
    double yaw = i * 360.0 / count;
    if (yaw > 180) yaw -= 360;
    views.push_back({yaw, settings.pitchOffset, formatText("v%02d", i)});
  }
  if (settings.includePoles) {
    views.push_back({0, 90, "vup"});
    views.push_back({0, -90, "vdn"});
  }
  return views;
}

std::array<double, 4> rotationOf(const SphereView& view) {
  const double halfYaw = view.yaw * std::numbers::pi / 360, halfPitch = view.pitch * std::numbers::pi / 360;
  // Against the yaw about the vertical axis, then against the pitch about the camera's.
  return {std::cos(halfPitch) * std::cos(halfYaw), -std::sin(halfPitch) * std::cos(halfYaw),
          -std::cos(halfPitch) * std::sin(halfYaw), std::sin(halfPitch) * std::sin(halfYaw)};
}

int sphereViewSize(const IngestSettings& settings) {
  return std::max(settings.viewResolution - settings.viewResolution % 2, 256);
}

IngestSettings fittedTo(const IngestSettings& settings, int sphereWidth) {
  IngestSettings fitted = settings;
  if (!settings.viewsFollowSphere || settings.viewResolution != IngestSettings{}.viewResolution || sphereWidth <= 0) {
    return fitted;
  }
  const double pixelsPerRadian = sphereWidth / (2 * std::numbers::pi);
  const double held = 2 * std::tan(settings.fieldOfView * std::numbers::pi / 360) * pixelsPerRadian;
  fitted.viewResolution = static_cast<int>(std::min<double>(settings.viewResolution, 1.5 * held));
  return fitted;
}

std::array<double, 4> sphereViewCamera(const IngestSettings& settings) {
  const double half = sphereViewSize(settings) / 2.0;
  const double focal = half / std::tan(settings.fieldOfView * std::numbers::pi / 360);
  return {focal, focal, half, half};
}

std::vector<double> fisheyeCamera(const IngestSettings& settings, int lensSize) {
  const double half = lensSize / 2.0;
  const double focal = half / (std::max(settings.fisheyeFieldOfView, 10.0) * 0.5 * std::numbers::pi / 180);
  return {focal, focal, half, half, 0, 0, 0, 0};
}

}  // namespace quor
