// What the stages before training need from a front end. A build without media (OMBRELUX_MEDIA=OFF) has the same
// functions; its stages end in a sentence that says so.
#pragma once

#include <string>
#include <vector>

#include "project/project.h"

namespace quor {

// To be called once, before images are read: teaches the image reader the formats that need FFmpeg or libheif.
void prepareMedia();

// Opens every input of kind Video and says what it really is: an ordinary, a 360-degree or a dual-fisheye one.
void detectVideoKinds(std::vector<InputSource>& inputs);

}  // namespace quor
