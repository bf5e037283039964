// The preferences as the user edits them: where the tools' paths lead, which devices there are, and the saving of
// settings.json a moment after the last change, whoever has changed the record. Looking and saving happen on worker
// threads. The interface's thread only.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/process/tool_finder.h"
#include "project/preferences.h"
#include "ui/models/background.h"

namespace quor::ui {

class PreferencesForm {
 public:
  struct Parts {
    Preferences& preferences;
    std::function<std::vector<std::string>()> listDevices;  // a line for each; on a worker thread, may throw
    std::filesystem::path file = Preferences::defaultFile();
    std::chrono::milliseconds pause{700};  // after the last change, before it takes effect
  };
  enum class Tool { Colmap, Ffmpeg };

  // `preferences` is as it was read from the file. The tools are looked for at once.
  explicit PreferencesForm(Parts parts);
  ~PreferencesForm();  // saves what is not saved yet

  void update();  // once a frame

  // All members may be edited in place.
  Preferences& preferences() { return parts_.preferences; }

  // The tools for the next run of a stage; nothing before the first search has ended.
  const std::optional<Tools>& tools() const { return tools_; }
  struct Finding {
    std::string text;        // "/usr/bin/colmap (PATH)", or that there is none and what to do
    bool missing = false;    // there is none
    bool misguided = false;  // the user's setting leads to no program
  };
  Finding finding(Tool tool) const;

  // The choices, the automatic one first; empty while they are being listed, which listDevices() begins.
  void listDevices();
  const std::vector<std::string>& devices() const { return devices_; }
  const std::string& deviceMessage() const { return deviceMessage_; }  // why there are none
  size_t chosenDevice() const;                                         // an index into devices()
  void chooseDevice(size_t index);
  bool deviceNeedsRestart() const { return parts_.preferences.deviceIndex != deviceAtStart_; }

  // Why the file could not be written; empty when it was.
  const std::string& saveMessage() const { return saveMessage_; }

 private:
  using Clock = std::chrono::steady_clock;

  void search();
  void save();

  const Parts parts_;
  const int deviceAtStart_;
  Preferences seen_;      // in the last frame
  Preferences saved_;     // in the file, or on its way there
  Preferences searched_;  // whose tools `tools_` are, or will be
  Clock::time_point changed_ = {};
  std::optional<Tools> tools_;
  std::vector<std::string> devices_;
  std::string deviceMessage_;
  std::string saveMessage_;
  Background searching_;
  Background listing_;
  std::optional<Background> saving_{std::in_place};
};

}  // namespace quor::ui
