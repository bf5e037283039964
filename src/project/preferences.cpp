#include "project/preferences.h"

#include <fstream>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "settings/json_members.h"

namespace quor {
namespace {

template <typename T>
void readIfSound(const Json& json, const char* key, T& value) {
  try {
    T read = value;
    readMember(json, key, read);
    value = std::move(read);
  } catch (const std::exception&) {  // of another type: the default stays
  }
}

void readScale(const Json& json, const char* key, float& scale) {
  float read = scale;
  readIfSound(json, key, read);
  if (read > 0) scale = read;
}

Json readFile(const std::filesystem::path& path) {
  try {
    std::ifstream file(path, std::ios::binary);
    return Json::parse(file);
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace

Preferences Preferences::load(const std::filesystem::path& file) {
  Preferences preferences;
  const Json json = readFile(file);
  if (!json.is_object()) return preferences;
  readIfSound(json, "colmapPath", preferences.colmapPath);
  readIfSound(json, "ffmpegPath", preferences.ffmpegPath);
  readIfSound(json, "lastDirectory", preferences.lastDirectory);
  readIfSound(json, "recentProjects", preferences.recentProjects);
  readIfSound(json, "deviceIndex", preferences.deviceIndex);
  readIfSound(json, "visualizer", preferences.visualizer);
  readScale(json, "textSize", preferences.uiScale);  // its name in older files
  readScale(json, "uiScale", preferences.uiScale);
  return preferences;
}

void Preferences::save(const std::filesystem::path& file) const {
  Json json;
  json["colmapPath"] = colmapPath;
  json["ffmpegPath"] = ffmpegPath;
  json["lastDirectory"] = lastDirectory;
  json["recentProjects"] = recentProjects;
  json["deviceIndex"] = deviceIndex;
  json["visualizer"] = visualizer;
  json["uiScale"] = std::stod(formatText("%.6g", static_cast<double>(uiScale)));  // 1.1, not 1.10000002384
  std::error_code shownByOpening;
  std::filesystem::create_directories(file.parent_path(), shownByOpening);
  AtomicFile target(file);
  // One path that is no UTF-8 must not cost the user all the rest.
  target.stream() << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
  target.commit();
}

void Preferences::addRecent(const std::string& project) {
  std::erase(recentProjects, project);
  recentProjects.insert(recentProjects.begin(), project);
  if (recentProjects.size() > kMaxRecent) recentProjects.resize(kMaxRecent);
}

std::filesystem::path Preferences::defaultFile() {
  return userDataFolder() / "settings.json";
}

}  // namespace quor
