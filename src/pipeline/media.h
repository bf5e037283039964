// What a front end needs of images and videos. A build without media (OMBRELUX_MEDIA=OFF) has the same functions, which
// do nothing.
#pragma once

#include <string>
#include <vector>

#include "project/project.h"

namespace quor {

// Registers the image formats that need FFmpeg or libheif. Call once, before images are read.
void prepareMedia();

// Opens every input of kind Video and sets its real kind: ordinary, 360-degree or dual-fisheye.
void detectVideoKinds(std::vector<InputSource>& inputs);

// GPU kernels that only the camera solve uses.
size_t mediaKernelCount();

}  // namespace quor
