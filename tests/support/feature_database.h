// Databases with COLMAP's tables, filled by a test, and what is in them afterwards.
#pragma once

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/files/paths.h"
#include "base/split_mix64.h"

namespace quor::test {

using Descriptors = std::vector<uint8_t>;  // rows of 128

// Of length 512, as COLMAP scales them.
inline Descriptors randomDescriptors(size_t count, uint64_t seed) {
  SplitMix64 random(seed);
  Descriptors bytes;
  for (size_t i = 0; i < count; ++i) {
    double values[128];
    double squares = 0;
    for (double& value : values) {
      value = std::pow(random.uniform(), 3);
      squares += value * value;
    }
    for (const double value : values) bytes.push_back(static_cast<uint8_t>(512 * value / std::sqrt(squares) + 0.5));
  }
  return bytes;
}

// The rows of `of`, from `first` on and round about, each byte changed by up to `noise`.
inline Descriptors similarDescriptors(const Descriptors& of, size_t first, size_t count, int noise, uint64_t seed) {
  SplitMix64 random(seed);
  Descriptors bytes;
  for (size_t i = 0; i < count * 128; ++i) {
    const int change = static_cast<int>(random.next() % static_cast<uint64_t>(2 * noise + 1)) - noise;
    bytes.push_back(static_cast<uint8_t>(std::clamp(of[(first * 128 + i) % of.size()] + change, 0, 255)));
  }
  return bytes;
}

class FeatureDatabase {
 public:
  enum Mode { Create, Open };
  explicit FeatureDatabase(const std::filesystem::path& path, Mode mode = Create) {
    std::filesystem::create_directories(path.parent_path());
    sqlite3* opened = nullptr;
    const int result = sqlite3_open(toUtf8(path).c_str(), &opened);
    database_.reset(opened);
    if (result != SQLITE_OK) throw std::runtime_error("no database");
    if (mode == Open) return;
    execute(
        "CREATE TABLE cameras (camera_id INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL);"
        "INSERT INTO cameras VALUES (1);"
        "CREATE TABLE images (image_id INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL, name TEXT NOT NULL UNIQUE,"
        " camera_id INTEGER NOT NULL);"
        "CREATE TABLE keypoints (image_id INTEGER PRIMARY KEY NOT NULL, rows INTEGER NOT NULL);"
        "CREATE TABLE descriptors (image_id INTEGER PRIMARY KEY NOT NULL, rows INTEGER NOT NULL, cols INTEGER NOT NULL,"
        " data BLOB);"
        "CREATE TABLE matches (pair_id INTEGER PRIMARY KEY NOT NULL, rows INTEGER NOT NULL, cols INTEGER NOT NULL,"
        " data BLOB);"
        "CREATE TABLE two_view_geometries (pair_id INTEGER PRIMARY KEY NOT NULL, rows INTEGER NOT NULL,"
        " cols INTEGER NOT NULL, data BLOB, config INTEGER NOT NULL)");
  }

  void execute(const std::string& text) {
    char* message = nullptr;
    if (sqlite3_exec(database_.get(), text.c_str(), nullptr, nullptr, &message) == SQLITE_OK) return;
    const std::string said = message ? message : "";
    sqlite3_free(message);
    throw std::runtime_error(said);
  }

  void addImage(uint32_t id, const std::string& name) {
    execute("INSERT INTO images VALUES (" + std::to_string(id) + ", '" + name + "', 1)");
  }
  void addImage(uint32_t id, const std::string& name, const Descriptors& descriptors, int columns = 128) {
    addImage(id, name);
    std::string hex;
    for (const uint8_t byte : descriptors) {
      hex += "0123456789abcdef"[byte / 16];
      hex += "0123456789abcdef"[byte % 16];
    }
    execute("INSERT INTO descriptors VALUES (" + std::to_string(id) + ", " +
            std::to_string(descriptors.size() / static_cast<size_t>(columns)) + ", " + std::to_string(columns) +
            ", x'" + hex + "')");
  }

  int64_t number(const std::string& query) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(database_.get(), query.c_str(), -1, &statement, nullptr);
    const int64_t value = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : -1;
    sqlite3_finalize(statement);
    return value;
  }
  // The pairs of indices of one row of matches.
  std::vector<uint32_t> matches(int64_t pair) {
    sqlite3_stmt* statement = nullptr;
    const std::string query = "SELECT data FROM matches WHERE pair_id = " + std::to_string(pair);
    sqlite3_prepare_v2(database_.get(), query.c_str(), -1, &statement, nullptr);
    std::vector<uint32_t> indices;
    if (sqlite3_step(statement) == SQLITE_ROW) {
      const auto* data = static_cast<const uint8_t*>(sqlite3_column_blob(statement, 0));
      for (int i = 0; i + 3 < sqlite3_column_bytes(statement, 0); i += 4) {
        indices.push_back(data[i] | data[i + 1] << 8 | data[i + 2] << 16 | static_cast<uint32_t>(data[i + 3]) << 24);
      }
    }
    sqlite3_finalize(statement);
    return indices;
  }

 private:
  struct Close {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
  };
  std::unique_ptr<sqlite3, Close> database_;
};

}  // namespace quor::test
