#include "base/files/atomic_file.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/files/sync_file.h"

namespace quor {
namespace {

// A quota and a limit on file sizes are a full disk to whoever writes.
bool meansNoRoom(int error) {
#ifdef EDQUOT
  if (error == EDQUOT) return true;
#endif
  return error == ENOSPC || error == EFBIG;
}

}  // namespace

template <class Result>
Result AtomicFile::Buffer::kept(Result result, bool failed) {
  if (failed && !failed_) error_ = errno;
  failed_ = failed_ || failed;
  return result;
}

std::filebuf::int_type AtomicFile::Buffer::overflow(int_type c) {
  errno = 0;
  const int_type result = std::filebuf::overflow(c);
  return kept(result, traits_type::eq_int_type(result, traits_type::eof()));
}

std::streamsize AtomicFile::Buffer::xsputn(const char* text, std::streamsize count) {
  errno = 0;
  const std::streamsize written = std::filebuf::xsputn(text, count);
  return kept(written, written < count);
}

int AtomicFile::Buffer::sync() {
  errno = 0;
  const int result = std::filebuf::sync();
  return kept(result, result != 0);
}

bool AtomicFile::Buffer::finish() {
  if (!is_open()) return !failed_;
  sync();  // close() does not say why it failed
  errno = 0;
  kept(0, close() == nullptr);
  return !failed_;
}

AtomicFile::AtomicFile(const std::filesystem::path& target, AtomicFileTexts texts)
    : target_(target), partial_(target), texts_(texts) {
  partial_ += texts.partialEnding;
  errno = 0;
  if (!buffer_.open(partial_, std::ios::out | std::ios::binary | std::ios::trunc)) fail(texts_.cannotOpen, "", errno);
}

AtomicFile::~AtomicFile() {
  if (keepPartial_) return;
  buffer_.close();
  std::error_code ignored;
  std::filesystem::remove(partial_, ignored);
}

void AtomicFile::fail(std::string_view before, std::string_view after, int error) const {
  const std::string sentence =
      std::string(before) + toUtf8(texts_.namesPartial ? partial_ : target_) + std::string(after);
  if (meansNoRoom(error)) throw DiskFull(sentence);
  throw std::runtime_error(sentence);
}

void AtomicFile::commit(Durability durability) {
  const bool written = buffer_.finish() && stream_.good();
  errno = 0;
  if (!written || (durability == Durability::OnDisk && !syncFile(partial_))) {
    fail(texts_.failedBefore, texts_.failedAfter, written ? errno : buffer_.error());
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
