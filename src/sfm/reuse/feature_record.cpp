#include "sfm/reuse/feature_record.h"

#include <algorithm>
#include <fstream>
#include <set>

#include "base/files/atomic_file.h"
#include "base/files/file_bytes.h"
#include "base/files/paths.h"
#include "base/parallel.h"
#include "base/text/text.h"
#include "settings/json_members.h"
#include "sfm/match/colmap_database.h"

namespace quor {
namespace {

namespace fs = std::filesystem;

constexpr int64_t kLargestFrame = int64_t{1} << 30;

// FNV-1a (Fowler, Noll, Vo): tells contents apart that were not made to collide.
template <typename Bytes>
uint64_t hashOf(const Bytes& bytes, uint64_t hash = 0xcbf29ce484222325) {
  for (const auto byte : bytes) hash = (hash ^ static_cast<uint8_t>(byte)) * 0x100000001b3;
  return hash;
}

// 0 for a file that cannot be read.
uint64_t contentHash(const fs::path& file) {
  try {
    return hashOf(readFileBytes(file, kLargestFrame));
  } catch (const std::exception&) {
    return 0;
  }
}

uint64_t optionsHash(const SolveContext& solve, const ImageGroup& group) {
  uint64_t hash = hashOf(solve.colmap.version());
  for (const std::string& option : extractionOptions(solve, group)) hash = hashOf(option + "\n", hash);
  return group.usesFisheyeMask ? hash ^ contentHash(solve.project.maskFile()) : hash;
}

std::string joined(const std::set<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += name + "\n";
  return text;
}

}  // namespace

FeatureRecord::FeatureRecord(const SolveContext& solve, const std::vector<ImageGroup>& groups)
    : solve_(solve), groups_(groups) {
  for (const ImageGroup& group : groups) {
    const uint64_t options = optionsHash(solve, group);
    std::vector<uint64_t> contents(group.images.size());
    parallelFor(contents.size(),
                [&](size_t i) { contents[i] = contentHash(solve.files.frames / fromUtf8(group.images[i])); });
    for (size_t i = 0; i < contents.size(); ++i) {
      frames_[group.images[i]] = formatText("%016llx-%016llx", static_cast<unsigned long long>(contents[i]),
                                            static_cast<unsigned long long>(options));
    }
  }
}

std::string FeatureRecord::matchingOptions(MatchedBy how) const {
  const SparseSettings& settings = solve_.project.sparse;
  if (how == MatchedBy::OwnMatcher) return "own 1 " + solve_.colmap.version();  // completes and prunes its pairs itself
  std::string text = "COLMAP " + solve_.colmap.version() +
                     formatText(" %d %d %d %d ", static_cast<int>(settings.matcher), settings.sequentialOverlap,
                                settings.useGPU, static_cast<int>(settings.pairs)) +
                     settings.vocabTreePath;
  // What COLMAP takes for neighbours depends on all the images there are.
  std::set<std::string> names;
  for (const auto& [name, print] : frames_) names.insert(name);
  if (settings.matcher != Matcher::Exhaustive)
    text += formatText(" %016llx", static_cast<unsigned long long>(hashOf(joined(names))));
  return text;
}

void FeatureRecord::keepWhatHolds() {
  const fs::path file = solve_.files.featureRecord;
  std::map<std::string, std::string> earlier;
  std::string matching;
  try {
    std::ifstream stream(file, std::ios::binary);
    const Json json = Json::parse(stream);
    if (const Json* frames = findObject(json, "frames")) earlier = frames->get<std::map<std::string, std::string>>();
    readMember(json, "matching", matching);
  } catch (const std::exception&) {  // none, or damaged
    earlier.clear();
  }
  std::error_code ignored;
  fs::remove(file, ignored);
  bool held = false;
  try {
    held = !earlier.empty() && fs::exists(solve_.files.database) && keepFrames(earlier, matching);
  } catch (const std::exception& error) {
    solve_.log.info(std::string("The features of the earlier solve cannot be used again: ") + error.what());
  }
  if (!held) solve_.files.removeDatabase();
}

// The names of today's frames by those that their features stand under: frames are numbered, so that a photograph that
// is added moves those after it.
std::map<std::string, std::string> FeatureRecord::sameFrames(const std::map<std::string, std::string>& earlier) const {
  std::map<std::string, std::string> renamed;
  std::multimap<std::string, std::string> byContent;
  std::set<std::string> found;
  for (const auto& [name, content] : earlier) {
    const auto now = frames_.find(name);
    if (now != frames_.end() && now->second == content) {
      renamed[name] = name;
      found.insert(name);
    } else {
      byContent.emplace(content, name);
    }
  }
  for (const auto& [name, content] : frames_) {
    const auto same = byContent.find(content);
    if (found.contains(name) || same == byContent.end()) continue;
    renamed[same->second] = name;
    byContent.erase(same);
  }
  return renamed;
}

// false when nothing holds.
bool FeatureRecord::keepFrames(const std::map<std::string, std::string>& earlier, const std::string& matching) const {
  ColmapDatabase database(solve_.files.database);
  const std::vector<DatabaseImage> images = database.images();
  const std::map<std::string, std::string> same = sameFrames(earlier);
  std::map<std::string, std::string> kept;  // today's names by earlier ones
  std::set<std::string> names;              // of these, today's
  for (const DatabaseImage& image : images) {
    const auto found = same.find(image.name);
    if (found == same.end()) continue;
    kept.insert(*found);
    names.insert(found->second);
  }
  // A group that shares a camera is extended only where COLMAP can be told which camera that is.
  for (const ImageGroup& group : groups_) {
    const bool whole = std::ranges::all_of(group.images, [&](const auto& image) { return names.contains(image); });
    if (whole || canExtend(solve_, group)) continue;
    const std::set<std::string> members(group.images.begin(), group.images.end());
    std::erase_if(kept, [&](const auto& pair) { return members.contains(pair.second); });
  }
  const bool unchanged = kept.size() == images.size() && kept.size() == frames_.size() &&
                         std::ranges::all_of(kept, [](const auto& pair) { return pair.first == pair.second; });
  // Version 3.12 and later also lists cameras as the sensors of rigs, and images as parts of frames.
  if (kept.empty() || (!unchanged && database.hasTable("frames"))) return false;
  if (!unchanged) database.keepImages(kept);
  if (matching != matchingOptions(plannedMatcher(solve_))) database.clearMatches();
  solve_.log.info(
      formatText("Features of %zu of %zu images are those of the earlier solve.", kept.size(), frames_.size()));
  return true;
}

void FeatureRecord::saveMatches(MatchedBy how) const {
  save(matchingOptions(how));
}

void FeatureRecord::save(const std::string& matching) const {
  // This command writes the cameras that it finds into the database.
  if (solve_.project.sparse.mapper == MapperKind::Global && solve_.colmap.hasCommand("view_graph_calibrator")) return;
  AtomicFile file(solve_.files.featureRecord);
  file.stream() << Json{{"frames", frames_}, {"matching", matching}}.dump(1, ' ', false, Json::error_handler_t::replace)
                << "\n";
  file.commit();
}

}  // namespace quor
