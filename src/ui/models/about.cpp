#include "ui/models/about.h"

#include <array>

#include "base/files/paths.h"
#include "base/version.h"
#include "project/preferences.h"

namespace quor::ui {

namespace {

constexpr std::array kLibraries = {
    Library{"Dear ImGui", "the interface", "MIT"},
    Library{"GLFW", "windows and input", "zlib"},
    Library{"volk, Vulkan headers", "opens the Vulkan driver", "MIT, Apache 2.0"},
    Library{"FFmpeg's libraries", "videos and pictures", "LGPL 2.1 or later; GPL 2 or later where built so"},
    Library{"libheif", "HEIC pictures", "LGPL 3 or later"},
    Library{"stb", "pictures", "public domain or MIT"},
    Library{"nanoflann", "nearest neighbours", "BSD 2-clause"},
    Library{"SQLite", "COLMAP's database", "public domain"},
    Library{"JSON for Modern C++", "project files", "MIT"},
    Library{"COLMAP, ffmpeg", "programs of their own, started when needed", "BSD 3-clause; LGPL or GPL"},
};

}  // namespace

std::string gpuStatusLine(const std::string& deviceName, bool sharedQueue) {
  return "GPU: " + deviceName + (sharedQueue ? " (one queue shared by UI and training)" : " (separate compute queue)");
}

std::span<const Library> usedLibraries() {
  return kLibraries;
}

About About::of(const std::string& device, const std::string& deviceName, bool sharedQueue) {
  return {std::string("Ombrelux ") + kVersion,    device,
          gpuStatusLine(deviceName, sharedQueue), toUtf8(applicationLogFile()),
          toUtf8(Preferences::defaultFile()),     toUtf8(userDataFolder() / "crashes")};
}

std::string About::copyText() const {
  return version + '\n' + device + '\n' + queues + '\n';
}

}  // namespace quor::ui
