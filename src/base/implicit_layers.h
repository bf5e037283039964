// The overlays and recorders that ask to be loaded into every program that uses Vulkan.
#pragma once

#include <string>
#include <vector>

namespace quor {

// Paths of the manifests that the registry names, for all users and then for this one. Empty where there is no
// registry or it cannot be read.
std::vector<std::string> implicitLayerManifests();

}  // namespace quor
