// A file that is never seen half-written: it is written beside its target as TARGET.partial, flushed, and moved over
// it. An AtomicFile that is destroyed without commit() leaves the target as it was and removes the partial file.
#pragma once

#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <string_view>

namespace quor {

// How a writer words its three failures: cannotOpen + path; failedBefore + path + failedAfter; cannotReplace + path +
// ": " + the system's reason. The path is the target's; with `namesPartial` the first two name the partial file. The
// texts must outlive the file.
struct AtomicFileTexts {
  std::string_view cannotOpen = "Cannot write ";
  std::string_view failedBefore = "Writing ";
  std::string_view failedAfter = " failed (disk full?)";
  std::string_view cannotReplace = "Cannot replace ";
  std::string_view partialEnding = ".partial";
  bool namesPartial = false;
};

class AtomicFile {
 public:
  // Throws std::runtime_error with cannotOpen, DiskFull when there is no room for another file; the target's folder
  // must exist.
  explicit AtomicFile(const std::filesystem::path& target, AtomicFileTexts texts = {});
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  // Binary. Write failures are found at commit(); a writer of much data may ask good() between blocks and stop early.
  std::ostream& stream() { return stream_; }
  bool good() const { return stream_.good(); }

  // Flushes and moves the file over its target. Throws std::runtime_error with one of the texts, DiskFull when the disk
  // had no room. OnDisk waits until the new contents would outlive a loss of power before the old ones go: for files
  // that cannot be made again quickly.
  enum class Durability { Flushed, OnDisk };
  void commit(Durability durability = Durability::Flushed);

 private:
  // Keeps the system's reason for the first write that fails, which a stream forgets.
  class Buffer : public std::filebuf {
   public:
    int error() const { return error_; }
    bool finish();  // closes; false when that or an earlier write failed

   protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* text, std::streamsize count) override;
    int sync() override;

   private:
    template <class Result>
    Result kept(Result result, bool failed);

    int error_ = 0;
    bool failed_ = false;
  };

  [[noreturn]] void fail(std::string_view before, std::string_view after, int error) const;

  std::filesystem::path target_;
  std::filesystem::path partial_;
  AtomicFileTexts texts_;
  Buffer buffer_;
  std::ostream stream_{&buffer_};
  bool keepPartial_ = false;  // moved to its target, or all that is left of it
};

}  // namespace quor
