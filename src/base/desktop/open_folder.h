#pragma once

#include <filesystem>

namespace quor {

// Shows the folder in the desktop's file manager, which then lives on its own. Does not wait for it. False when the
// folder is not there or nothing could be started.
bool openFolder(const std::filesystem::path& folder);

}  // namespace quor
