#pragma once

#include <filesystem>

namespace quor {

// Shows the folder in the desktop's file manager, which then lives on its own. Waits up to two seconds to see whether
// it starts, so not for the interface's thread. False when the folder is missing or nothing could be started.
bool openFolder(const std::filesystem::path& folder);

}  // namespace quor
