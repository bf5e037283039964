// Pictures of a Scene, traced ray by ray on all processors. The same scene and view give the same bytes.
#pragma once

#include "base/image/image.h"
#include "sample_capture/scene.h"
#include "sample_capture/views.h"

namespace quor::sample {

// How well a picture is antialiased: a photograph takes 16 rays to a pixel, 4 where those agree. A frame of a video
// takes 2, which does for surfaces, whose patterns are smoothed to the size of a pixel; only outlines get rougher.
enum class Rays { Photo, Video };

Image renderView(const Scene& scene, const PinholeView& view, Rays rays = Rays::Photo);
Image renderView(const Scene& scene, const EquirectangularView& view, Rays rays = Rays::Photo);
Image renderView(const Scene& scene, const FisheyeView& view, Rays rays = Rays::Photo);

}  // namespace quor::sample
