#include "sfm/match/colmap_database.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "base/files/paths.h"

namespace quor {
namespace {

constexpr int64_t kIdsOfAPair = 2147483647;
constexpr int kLockedMilliseconds = 5000;

ImagePair pairOf(int64_t id) {
  return {static_cast<uint32_t>(id / kIdsOfAPair), static_cast<uint32_t>(id % kIdsOfAPair)};
}

}  // namespace

int64_t pairId(uint32_t image1, uint32_t image2) {
  return std::min(image1, image2) * kIdsOfAPair + std::max(image1, image2);
}

void ColmapDatabase::Close::operator()(sqlite3* database) const {
  sqlite3_close(database);
}
void ColmapDatabase::Close::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

ColmapDatabase::ColmapDatabase(const std::filesystem::path& path) {
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(toUtf8(path).c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
  database_.reset(opened);
  if (result != SQLITE_OK) throw std::runtime_error("Cannot open the COLMAP database");
  sqlite3_busy_timeout(opened, kLockedMilliseconds);
}

std::vector<DatabaseImage> ColmapDatabase::images() {
  const Statement statement = prepare(
      "SELECT images.image_id, images.name, COALESCE(descriptors.rows, 0) FROM images LEFT JOIN descriptors ON "
      "descriptors.image_id = images.image_id ORDER BY images.image_id");
  std::vector<DatabaseImage> images;
  while (step(statement.get())) {
    DatabaseImage image;
    image.id = static_cast<uint32_t>(sqlite3_column_int64(statement.get(), 0));
    const auto* name = sqlite3_column_text(statement.get(), 1);
    if (name) image.name.assign(name, name + sqlite3_column_bytes(statement.get(), 1));
    const int64_t rows = sqlite3_column_int64(statement.get(), 2);
    image.features = static_cast<uint32_t>(std::clamp<int64_t>(rows, 0, UINT32_MAX));
    images.push_back(std::move(image));
  }
  return images;
}

std::map<uint32_t, uint32_t> ColmapDatabase::cameras() {
  const Statement statement = prepare("SELECT image_id, camera_id FROM images");
  std::map<uint32_t, uint32_t> cameras;
  while (step(statement.get())) {
    cameras[static_cast<uint32_t>(sqlite3_column_int64(statement.get(), 0))] =
        static_cast<uint32_t>(sqlite3_column_int64(statement.get(), 1));
  }
  return cameras;
}

ColmapDatabase::Descriptors ColmapDatabase::descriptors(uint32_t image) {
  const Statement statement = prepare("SELECT rows, cols, data FROM descriptors WHERE image_id = ?");
  check(sqlite3_bind_int64(statement.get(), 1, image));
  Descriptors found;
  if (!step(statement.get())) return found;
  found.rows = sqlite3_column_int64(statement.get(), 0);
  found.columns = sqlite3_column_int64(statement.get(), 1);
  const auto* data = static_cast<const uint8_t*>(sqlite3_column_blob(statement.get(), 2));
  if (data) found.data.assign(data, data + sqlite3_column_bytes(statement.get(), 2));
  return found;
}

void ColmapDatabase::begin() {
  execute("BEGIN TRANSACTION");
}

void ColmapDatabase::commit() {
  execute("COMMIT");
}

void ColmapDatabase::writeMatches(const ImagePair& pair, std::span<const FeatureMatch> matches) {
  static_assert(sizeof(FeatureMatch) == 2 * sizeof(uint32_t));
  if (!insert_) insert_ = prepare("INSERT OR REPLACE INTO matches (pair_id, rows, cols, data) VALUES (?, ?, 2, ?)");
  sqlite3_stmt* insert = insert_.get();
  sqlite3_reset(insert);
  check(sqlite3_bind_int64(insert, 1, pairId(pair.first, pair.second)));
  check(sqlite3_bind_int64(insert, 2, static_cast<int64_t>(matches.size())));
  const void* data = matches.empty() ? static_cast<const void*>("") : matches.data();
  check(sqlite3_bind_blob64(insert, 3, data, matches.size_bytes(), SQLITE_STATIC));
  step(insert);
  sqlite3_reset(insert);
}

void ColmapDatabase::clearMatches() {
  execute("DELETE FROM matches");
  execute("DELETE FROM two_view_geometries");
}

size_t ColmapDatabase::verifiedPairs() {
  const Statement statement = prepare("SELECT COUNT(*) FROM two_view_geometries WHERE rows > 0");
  step(statement.get());
  return static_cast<size_t>(sqlite3_column_int64(statement.get(), 0));
}

void ColmapDatabase::eachVerifiedPair(
    const std::function<void(const ImagePair&, const std::vector<FeatureMatch>&)>& visit) {
  const Statement statement = prepare("SELECT pair_id, data FROM two_view_geometries WHERE rows > 0");
  std::vector<FeatureMatch> matches;
  while (step(statement.get())) {
    const int64_t id = sqlite3_column_int64(statement.get(), 0);
    const auto size = static_cast<size_t>(sqlite3_column_bytes(statement.get(), 1));
    matches.resize(size / sizeof(FeatureMatch));
    if (matches.empty()) continue;
    std::memcpy(matches.data(), sqlite3_column_blob(statement.get(), 1), matches.size() * sizeof(FeatureMatch));
    visit(pairOf(id), matches);
  }
}

void ColmapDatabase::keepVerifiedPairs(const std::set<ImagePair>& pairs) {
  std::vector<int64_t> others;
  eachVerifiedPair([&](const ImagePair& pair, const auto&) {
    if (!pairs.contains(pair)) others.push_back(pairId(pair.first, pair.second));
  });
  begin();
  const Statement remove = prepare("DELETE FROM two_view_geometries WHERE pair_id = ?");
  for (const int64_t id : others) {
    check(sqlite3_bind_int64(remove.get(), 1, id));
    step(remove.get());
    sqlite3_reset(remove.get());
  }
  commit();
}

std::map<ImagePair, ColmapDatabase::MatchedPair> ColmapDatabase::matchedPairs() {
  const Statement statement = prepare(
      "SELECT matches.pair_id, matches.rows, two_view_geometries.pair_id IS NOT NULL FROM matches LEFT JOIN "
      "two_view_geometries ON two_view_geometries.pair_id = matches.pair_id");
  std::map<ImagePair, MatchedPair> pairs;
  while (step(statement.get())) {
    pairs[pairOf(sqlite3_column_int64(statement.get(), 0))] = {
        static_cast<size_t>(std::max<int64_t>(sqlite3_column_int64(statement.get(), 1), 0)),
        sqlite3_column_int(statement.get(), 2) != 0};
  }
  return pairs;
}

void ColmapDatabase::keepImages(const std::map<std::string, std::string>& names) {
  begin();
  execute("CREATE TEMP TABLE removed (id INTEGER PRIMARY KEY)");
  {
    const Statement insert = prepare("INSERT INTO removed VALUES (?)");
    for (const DatabaseImage& image : images()) {
      if (names.contains(image.name)) continue;
      check(sqlite3_bind_int64(insert.get(), 1, image.id));
      step(insert.get());
      sqlite3_reset(insert.get());
    }
  }
  for (const std::string table : {"matches", "two_view_geometries"}) {
    execute(("DELETE FROM " + table +
             " WHERE pair_id / 2147483647 IN (SELECT id FROM removed) OR pair_id % 2147483647 IN (SELECT id FROM "
             "removed)")
                .c_str());
  }
  for (const std::string table : {"keypoints", "descriptors", "images"}) {
    execute(("DELETE FROM " + table + " WHERE image_id IN (SELECT id FROM removed)").c_str());
  }
  execute("DELETE FROM cameras WHERE camera_id NOT IN (SELECT camera_id FROM images)");
  execute("DROP TABLE removed");
  {
    execute("UPDATE images SET name = '/' || name");  // names that no frame has, since each may be taken only once
    const Statement rename = prepare("UPDATE images SET name = ? WHERE name = '/' || ?");
    for (const auto& [from, to] : names) {
      check(sqlite3_bind_text(rename.get(), 1, to.c_str(), -1, SQLITE_TRANSIENT));
      check(sqlite3_bind_text(rename.get(), 2, from.c_str(), -1, SQLITE_TRANSIENT));
      step(rename.get());
      sqlite3_reset(rename.get());
    }
  }
  commit();
}

bool ColmapDatabase::hasTable(const std::string& name) {
  const Statement statement = prepare("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?");
  check(sqlite3_bind_text(statement.get(), 1, name.c_str(), -1, SQLITE_TRANSIENT));
  return step(statement.get());
}

ColmapDatabase::Statement ColmapDatabase::prepare(const char* text) {
  sqlite3_stmt* made = nullptr;
  check(sqlite3_prepare_v2(database_.get(), text, -1, &made, nullptr));
  return Statement(made);
}

bool ColmapDatabase::step(sqlite3_stmt* statement) {
  const int result = sqlite3_step(statement);
  if (result != SQLITE_ROW && result != SQLITE_DONE) check(result);
  return result == SQLITE_ROW;
}

void ColmapDatabase::check(int result) {
  if (result == SQLITE_OK) return;
  throw std::runtime_error(std::string("COLMAP database: ") + sqlite3_errmsg(database_.get()));
}

void ColmapDatabase::execute(const char* text) {
  step(prepare(text).get());
}

}  // namespace quor
