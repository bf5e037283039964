#include "ui/models/preferences_form.h"

#include <utility>

#include "base/failure_text.h"
#include "base/paths.h"

namespace quor::ui {

namespace {

Tools findTools(const Preferences& preferences) {
  return {findColmap(preferences.colmapPath), findFfmpeg(preferences.ffmpegPath)};
}

bool sameTools(const Preferences& a, const Preferences& b) {
  return a.colmapPath == b.colmapPath && a.ffmpegPath == b.ffmpegPath;
}

std::string saveTo(const std::filesystem::path& file, const Preferences& preferences) {
  try {
    preferences.save(file);
    return {};
  } catch (const std::exception& error) {
    return "The preferences were not saved: " + failureText(error);
  }
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
  if (parts_.preferences == saved_) return;
  saving_ = {};  // two at once would write the same file
  saveTo(parts_.file, parts_.preferences);
}

void PreferencesForm::update() {
  const Preferences& now = parts_.preferences;
  if (now != seen_) {
    seen_ = now;
    changed_ = Clock::now();
  }
  if (auto tools = searching_.take()) tools_ = std::move(*tools);
  if (auto message = saving_.take()) saveMessage_ = std::move(*message);
  try {
    if (auto devices = listing_.take()) {
      devices_ = std::move(*devices);
      devices_.insert(devices_.begin(), "Automatic");
    }
  } catch (const std::exception& error) {
    deviceMessage_ = failureText(error);
  }
  if (Clock::now() - changed_ < parts_.pause) return;
  if (!searching_.running() && !sameTools(now, searched_)) search();
  if (!saving_.running() && now != saved_) save();
}

void PreferencesForm::search() {
  searched_ = parts_.preferences;
  searching_.start([preferences = searched_] { return findTools(preferences); });
}

void PreferencesForm::save() {
  saved_ = parts_.preferences;
  saving_.start([file = parts_.file, preferences = saved_] { return saveTo(file, preferences); });
}

PreferencesForm::Finding PreferencesForm::finding(Tool tool) const {
  const bool colmap = tool == Tool::Colmap;
  const Preferences& now = parts_.preferences;
  if (!tools_ || !sameTools(now, searched_) || searching_.running()) return {"Looking for it..."};
  const std::optional<ToolLocation>& found = colmap ? tools_->colmap : tools_->ffmpeg;
  const bool misguided = !(colmap ? now.colmapPath : now.ffmpegPath).empty() && (!found || found->source != "settings");
  const std::string lead = misguided ? "There is no such program at this path. " : "";
  if (found) {
    const std::string place = toUtf8(found->executable) + " (" + found->source + ")";
    return {misguided ? lead + "In use instead: " + place : place, false, misguided};
  }
  const char* advice =
      colmap ? "COLMAP was not found. Install it, or set its folder here; cameras cannot be solved without it."
             : "ffmpeg was not found. It is only needed for videos that the built-in decoder cannot read.";
  return {lead + advice, true, misguided};
}

void PreferencesForm::listDevices() {
  if (listing_.running() || !devices_.empty()) return;
  deviceMessage_.clear();
  listing_.start(parts_.listDevices);
}

size_t PreferencesForm::chosenDevice() const {
  const int index = parts_.preferences.deviceIndex;
  return index < 0 ? 0 : static_cast<size_t>(index) + 1;
}

void PreferencesForm::chooseDevice(size_t index) {
  parts_.preferences.deviceIndex = static_cast<int>(index) - 1;
}

std::optional<std::string> colmapNotice(const PreferencesForm& form) {
  if (!form.tools() || form.tools()->colmap) return std::nullopt;
  return kColmapMissing;
}

}  // namespace quor::ui
