// Texts of the About window.
#pragma once

#include <span>
#include <string>
#include <vector>

namespace quor::ui {

// "GPU: NAME (one queue shared by UI and training)" or "GPU: NAME (separate compute queue)"
std::string gpuStatusLine(const std::string& deviceName, bool sharedQueue);

struct Library {
  const char* name;
  const char* use;
  const char* licence;
};
std::span<const Library> usedLibraries();

struct About {
  std::string version;  // "Ombrelux 1.1.3"
  std::string device;   // the line that describes it
  std::string queues;   // gpuStatusLine()
  std::string logFile;  // the paths: UTF-8
  std::string settingsFile;
  std::string crashFolder;

  // `device` is gs::describe() of it and its driver.
  static About of(const std::string& device, const std::string& deviceName, bool sharedQueue);
  std::string copyText() const;  // for a report
};

}  // namespace quor::ui
