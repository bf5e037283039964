#include "ui/models/settings/preferences_form.h"

#include <utility>

#include "base/files/paths.h"
#include "base/process/tool_places.h"

namespace quor::ui {

namespace {

Tools findTools(const Preferences& preferences) {
  return {findColmap(preferences.colmapPath), findFfmpeg(preferences.ffmpegPath)};
}

bool sameTools(const Preferences& a, const Preferences& b) {
  return a.colmapPath == b.colmapPath && a.ffmpegPath == b.ffmpegPath;
}

}  // namespace

PreferencesForm::PreferencesForm(Parts parts)
    : parts_(std::move(parts)),
      deviceAtStart_(parts_.preferences.deviceIndex),
      seen_(parts_.preferences),
      saved_(parts_.preferences) {
  search();
}

PreferencesForm::~PreferencesForm() {
  if (parts_.preferences == saved_ && !saving_->busy()) return;
  saving_.reset();  // two at once would write the same file
  try {
    parts_.preferences.save(parts_.file);
  } catch (const std::exception&) {  // the window is gone: there is no place to say it
  }
}

void PreferencesForm::update() {
  const Preferences& now = parts_.preferences;
  if (now != seen_) {
    seen_ = now;
    changed_ = Clock::now();
  }
  for (Background* background : {&searching_, &listing_, &*saving_}) background->update();
  if (Clock::now() - changed_ < parts_.pause) return;
  if (!searching_.busy() && !sameTools(now, searched_)) search();
  if (!saving_->busy() && now != saved_) save();
}

void PreferencesForm::search() {
  searched_ = parts_.preferences;
  searching_.run(
      "Looking for COLMAP and ffmpeg", [preferences = searched_] { return findTools(preferences); },
      [this](Tools tools) { tools_ = std::move(tools); }, [](const std::string&) {});
}

void PreferencesForm::save() {
  saved_ = parts_.preferences;
  const auto work = [file = parts_.file, preferences = saved_] {
    preferences.save(file);
    return true;
  };
  saving_->run(
      "Saving the preferences", work, [this](bool) { saveMessage_.clear(); },
      [this](const std::string& sentence) { saveMessage_ = "The preferences were not saved: " + sentence; });
}

PreferencesForm::Finding PreferencesForm::finding(Tool tool) const {
  const bool colmap = tool == Tool::Colmap;
  const Preferences& now = parts_.preferences;
  if (!tools_ || !sameTools(now, searched_) || searching_.busy()) return {"Looking for it..."};
  const std::optional<ToolLocation>& found = colmap ? tools_->colmap : tools_->ffmpeg;
  const bool misguided = !(colmap ? now.colmapPath : now.ffmpegPath).empty() && (!found || found->source != "settings");
  const std::string lead = misguided ? "There is no such program at this path. " : "";
  if (found) {
    const std::string place = toUtf8(found->executable) + " (" + found->source + ")";
    return {misguided ? lead + "In use instead: " + place : place, false, misguided};
  }
  const std::string advice =
      colmap ? "COLMAP was not found. Install it, or set its folder here; cameras cannot be solved without it. " +
                   colmapAdvice()
             : "ffmpeg was not found. It is only needed for videos that the built-in decoder cannot read.";
  return {lead + advice, true, misguided};
}

void PreferencesForm::listDevices() {
  if (listing_.busy() || !devices_.empty()) return;
  deviceMessage_.clear();
  const auto done = [this](std::vector<std::string> devices) {
    devices_ = std::move(devices);
    devices_.insert(devices_.begin(), "Automatic");
  };
  listing_.run("Looking for devices", parts_.listDevices, done,
               [this](const std::string& sentence) { deviceMessage_ = sentence; });
}

size_t PreferencesForm::chosenDevice() const {
  const int index = parts_.preferences.deviceIndex;
  return index < 0 ? 0 : static_cast<size_t>(index) + 1;
}

void PreferencesForm::chooseDevice(size_t index) {
  parts_.preferences.deviceIndex = static_cast<int>(index) - 1;
}

}  // namespace quor::ui
