#pragma once

#include <string>

namespace quor {

// What the program was built with, for reports of faults: a line each for compiler, media, window, the Vulkan headers
// and the kernels. Ends in a line feed.
std::string buildInfoText();

}  // namespace quor
