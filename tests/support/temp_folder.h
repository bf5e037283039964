// A folder of a test's own, removed with everything in it. Its name holds a blank, an accent and CJK, so that every
// test that writes a file also shows that such paths work.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/files/paths.h"

namespace quor::test {

class TempFolder {
 public:
  TempFolder() {
    std::random_device random;
    do {
      path_ = std::filesystem::temp_directory_path() / fromUtf8("ombrelux té 写 " + std::to_string(random()));
    } while (!std::filesystem::create_directory(path_));
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(std::string_view name) const { return (path_ / fromUtf8(name)).make_preferred(); }

 private:
  std::filesystem::path path_;
};

// Makes the folders on the way.
inline std::filesystem::path writeFile(const std::filesystem::path& path, std::string_view bytes) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + toUtf8(path));
  return path;
}

inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + toUtf8(path));
  return {std::istreambuf_iterator<char>(file), {}};
}

// What a call throws, as text; "no exception" when it throws nothing.
template <typename Call>
std::string thrownText(Call&& call) {
  try {
    call();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "no exception";
}

}  // namespace quor::test
