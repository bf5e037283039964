#include "match_comparison.h"

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/files/paths.h"
#include "sfm/match/colmap_database.h"

namespace quor {
namespace {

using Match = std::pair<uint32_t, uint32_t>;
using Matches = std::set<Match>;

class MatchReader {
 public:
  explicit MatchReader(const std::filesystem::path& path) {
    sqlite3* opened = nullptr;
    sqlite3_open_v2(toUtf8(path).c_str(), &opened, SQLITE_OPEN_READONLY, nullptr);
    database_.reset(opened);
    sqlite3_stmt* made = nullptr;
    sqlite3_prepare_v2(opened, "SELECT rows, data FROM matches WHERE pair_id = ?", -1, &made, nullptr);
    statement_.reset(made);
    if (!made) throw std::runtime_error("Cannot read the matches of " + toUtf8(path) + ".");
  }

  Matches of(const ImagePair& pair) {
    sqlite3_reset(statement_.get());
    sqlite3_bind_int64(statement_.get(), 1, pairId(pair.first, pair.second));
    Matches matches;
    if (sqlite3_step(statement_.get()) != SQLITE_ROW) return matches;
    const auto rows = static_cast<size_t>(sqlite3_column_int(statement_.get(), 0));
    const auto* indices = static_cast<const uint32_t*>(sqlite3_column_blob(statement_.get(), 1));
    for (size_t i = 0; i < rows; ++i) matches.emplace(indices[2 * i], indices[2 * i + 1]);
    return matches;
  }

 private:
  struct Close {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3, Close> database_;
  std::unique_ptr<sqlite3_stmt, Close> statement_;
};

// COLMAP's formula: descriptors have a length of 512.
float angle(uint32_t dot) {
  return std::acos(std::min(static_cast<float>(dot) * (1.0f / (512 * 512)), 1.0f));
}

struct Nearest {
  uint32_t index = UINT32_MAX, dot = 0, second = 0;

  void offer(uint32_t candidate, uint32_t itsDot) {
    if (itsDot > dot) {
      second = dot;
      dot = itsDot;
      index = candidate;
    } else {
      second = std::max(second, itsDot);
    }
  }
  bool accepted(const SiftMatchOptions& options) const {
    return angle(dot) <= options.maxDistance && angle(dot) < options.maxRatio * angle(second);
  }
};

// Every descriptor of one image against every one of the other.
struct ExactSearch {
  std::vector<Nearest> first, second;  // for each feature of the one, in the other

  ExactSearch(const std::vector<uint8_t>& one, const std::vector<uint8_t>& other)
      : first(one.size() / SiftMatcher::kDescriptorBytes), second(other.size() / SiftMatcher::kDescriptorBytes) {
    for (uint32_t i = 0; i < first.size(); ++i) {
      for (uint32_t j = 0; j < second.size(); ++j) {
        const uint8_t* a = one.data() + i * SiftMatcher::kDescriptorBytes;
        const uint8_t* b = other.data() + j * SiftMatcher::kDescriptorBytes;
        int dot = 0;
        for (size_t k = 0; k < SiftMatcher::kDescriptorBytes; ++k) dot += a[k] * b[k];
        first[i].offer(j, static_cast<uint32_t>(dot));
        second[j].offer(i, static_cast<uint32_t>(dot));
      }
    }
  }

  Matches matches() const {
    Matches found;
    for (uint32_t i = 0; i < first.size(); ++i) {
      const uint32_t j = first[i].index;
      if (j == UINT32_MAX || second[j].index != i) continue;
      if (first[i].accepted({}) && second[j].accepted({})) found.emplace(i, j);
    }
    return found;
  }
};

size_t countMissing(const Matches& of, const Matches& in) {
  return static_cast<size_t>(std::ranges::count_if(of, [&](const Match& match) { return !in.contains(match); }));
}

}  // namespace

void compareMatches(const std::filesystem::path& exact, const std::filesystem::path& colmap) {
  ColmapDatabase features(exact);
  const std::vector<DatabaseImage> images = features.images();
  MatchReader exactReader(exact), colmapReader(colmap);
  size_t pairs = 0, unequal = 0, all = 0, shared = 0, theirs = 0, notNearest = 0, ratio = 0, unexplained = 0;
  for (size_t a = 0; a < images.size(); ++a) {
    const std::vector<uint8_t> one = features.descriptors(images[a].id).data;
    for (size_t b = a + 1; b < images.size(); ++b) {
      const ImagePair pair{images[a].id, images[b].id};
      const ExactSearch search(one, features.descriptors(images[b].id).data);
      const Matches ours = exactReader.of(pair), reference = search.matches(), other = colmapReader.of(pair);
      ++pairs;
      all += ours.size();
      theirs += other.size();
      unequal += countMissing(ours, reference) + countMissing(reference, ours);
      shared += ours.size() - countMissing(ours, other);
      for (const Match& match : other) {
        if (ours.contains(match)) continue;
        const Nearest &forth = search.first[match.first], &back = search.second[match.second];
        const bool nearest = forth.index == match.second && back.index == match.first;
        ++(!nearest ? notNearest : !forth.accepted({}) || !back.accepted({}) ? ratio : unexplained);
      }
    }
  }
  const auto percent = [](size_t part, size_t whole) {
    return 100.0 * static_cast<double>(part) / static_cast<double>(whole);
  };
  std::printf("%zu pairs, %zu matches here; %zu differ from an exact search on the processor\n", pairs, all, unequal);
  std::printf("COLMAP has %zu; shared %zu, which is %.2f%% of those here and %.2f%% of COLMAP's\n", theirs, shared,
              percent(shared, all), percent(shared, theirs));
  std::printf(
      "only COLMAP's: %zu are not each other's nearest, %zu fail the ratio or distance with the exact second, %zu "
      "unexplained\n",
      notNearest, ratio, unexplained);
}

}  // namespace quor
