// The settings that Windows keeps for all programs, outside of files.
#pragma once

#include <string>
#include <vector>

namespace quor {

// Names of the values of a key such as "SOFTWARE\\Vendor\\Thing", for all users and then for this one. Empty where the
// system has no registry or the key cannot be read.
std::vector<std::string> registryValueNames(const std::string& key);

}  // namespace quor
