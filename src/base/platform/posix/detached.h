#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quor {

// Starts a program that outlives this one, without a terminal and with the standard streams at /dev/null. Waits for it
// up to two seconds: false when it could not be started or has failed by then.
bool startDetached(const std::filesystem::path& program, const std::vector<std::string>& arguments);

}  // namespace quor
