#include "base/implicit_layers.h"

namespace quor {

std::vector<std::string> implicitLayerManifests() {
  return {};
}

}  // namespace quor
