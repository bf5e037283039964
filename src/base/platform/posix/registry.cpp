#include "base/desktop/registry.h"

namespace quor {

std::vector<std::string> registryValueNames(const std::string&) {
  return {};
}

}  // namespace quor
