#include "base/files/file_bytes.h"

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace quor {

std::vector<uint8_t> readFileBytes(const std::filesystem::path& path, int64_t limit) {
  // A folder opens like a file and then has an enormous size; a pipe would never end.
  std::error_code ignored;
  const std::filesystem::file_status status = std::filesystem::status(path, ignored);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw std::runtime_error("it is not a file");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    const std::error_code reason(errno, std::generic_category());
    throw std::runtime_error(reason ? reason.message() : "it cannot be opened");
  }
  file.seekg(0, std::ios::end);
  const std::streamoff size = file.tellg();
  if (!file) throw std::runtime_error("the file could not be read");
  if (size > limit) throw std::runtime_error("the file is too large");
  std::vector<uint8_t> bytes(static_cast<size_t>(size));
  file.seekg(0);
  if (!file.read(reinterpret_cast<char*>(bytes.data()), size)) throw std::runtime_error("the file could not be read");
  return bytes;
}

}  // namespace quor
