// COLMAP's database.db, as far as matching needs it: images and their descriptors are read, raw matches written. Every
// failing statement throws std::runtime_error "COLMAP database: " and SQLite's message.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "sfm/match/image_pairs.h"
#include "sfm/match/sift_matcher.h"

struct sqlite3;
struct sqlite3_stmt;

namespace quor {

// COLMAP's key of a pair of images, whichever comes first.
int64_t pairId(uint32_t image1, uint32_t image2);

class ColmapDatabase {
 public:
  // One row of the table of descriptors, whatever COLMAP has put there.
  struct Descriptors {
    int64_t rows = 0, columns = 0;
    std::vector<uint8_t> data;
  };

  // Throws "Cannot open the COLMAP database"; a file that is not there is not made.
  explicit ColmapDatabase(const std::filesystem::path& path);

  // Camera ids by image id.
  std::map<uint32_t, uint32_t> cameras();
  // By rising id. An image without descriptors has 0 features.
  std::vector<DatabaseImage> images();
  Descriptors descriptors(uint32_t image);

  // Writes between the two take effect together at commit(), or not at all.
  void begin();
  void commit();

  // The pair holds the smaller id first; matches that the pair had are replaced.
  void writeMatches(const ImagePair& pair, std::span<const FeatureMatch> matches);

  // Raw and verified ones.
  void clearMatches();
  // Pairs that COLMAP has found to show the same things.
  size_t verifiedPairs();
  // Calls visit(pair, matches) for each of them; the pair holds the smaller id first.
  void eachVerifiedPair(const std::function<void(const ImagePair&, const std::vector<FeatureMatch>&)>& visit);
  // Forgets what was found of the other pairs.
  void keepVerifiedPairs(const std::set<ImagePair>& pairs);

  struct MatchedPair {
    size_t matches = 0;     // before verification
    bool verified = false;  // whether COLMAP has looked at them
  };
  std::map<ImagePair, MatchedPair> matchedPairs();
  // Removes all other images with everything that was found of them, and cameras without images; those that are kept
  // get new names, by their names so far.
  void keepImages(const std::map<std::string, std::string>& names);
  bool hasTable(const std::string& name);

 private:
  struct Close {
    void operator()(sqlite3* database) const;
    void operator()(sqlite3_stmt* statement) const;
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Close>;

  Statement prepare(const char* text);
  bool step(sqlite3_stmt* statement);  // true when it has given a row
  void check(int result);
  void execute(const char* text);

  std::unique_ptr<sqlite3, Close> database_;
  Statement insert_;
};

}  // namespace quor
