#include "base/files/atomic_file.h"

#include <stdexcept>
#include <system_error>

#include "base/files/paths.h"
#include "base/files/sync_file.h"

namespace quor {

AtomicFile::AtomicFile(const std::filesystem::path& target, AtomicFileTexts texts)
    : target_(target), partial_(target), texts_(texts) {
  partial_ += ".partial";
  stream_.open(partial_, std::ios::binary | std::ios::trunc);
  if (!stream_) throw std::runtime_error(std::string(texts_.cannotOpen) + toUtf8(target_));
}

AtomicFile::~AtomicFile() {
  if (keepPartial_) return;
  stream_.close();
  std::error_code ignored;
  std::filesystem::remove(partial_, ignored);
}

void AtomicFile::commit(Durability durability) {
  stream_.close();
  if (!stream_ || (durability == Durability::OnDisk && !syncFile(partial_))) {
    throw std::runtime_error(std::string(texts_.failedBefore) + toUtf8(target_) + std::string(texts_.failedAfter));
  }
  std::error_code error;
  std::filesystem::rename(partial_, target_, error);
  if (error) {
    std::error_code ignored;
    // Some file systems do not move over an existing file. A folder in the way is never deleted.
    const bool removed = !std::filesystem::is_directory(target_, ignored) && std::filesystem::remove(target_, ignored);
    if (removed) std::filesystem::rename(partial_, target_, error);
    if (error) {
      keepPartial_ = removed;
      throw std::runtime_error(std::string(texts_.cannotReplace) + toUtf8(target_) + ": " + error.message());
    }
  }
  keepPartial_ = true;
}

}  // namespace quor
