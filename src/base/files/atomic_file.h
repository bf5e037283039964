// A file that is never seen half-written: it is written beside its target as TARGET.partial, flushed, and moved over
// it. An AtomicFile that is destroyed without commit() leaves the target as it was and removes the partial file.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace quor {

// How a writer words its three failures: cannotOpen + path; failedBefore + path + failedAfter; cannotReplace + path +
// ": " + the system's reason. The texts must outlive the file.
struct AtomicFileTexts {
  std::string_view cannotOpen = "Cannot write ";
  std::string_view failedBefore = "Writing ";
  std::string_view failedAfter = " failed (disk full?)";
  std::string_view cannotReplace = "Cannot replace ";
};

class AtomicFile {
 public:
  // Throws std::runtime_error with cannotOpen; the target's folder must exist.
  explicit AtomicFile(const std::filesystem::path& target, AtomicFileTexts texts = {});
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  // Binary. Write failures are found at commit(); a writer of much data may ask good() between blocks and stop early.
  std::ostream& stream() { return stream_; }
  bool good() const { return stream_.good(); }

  // Flushes and moves the file over its target. Throws std::runtime_error with one of the texts. OnDisk waits until the
  // new contents would outlive a loss of power before the old ones go: for files that cost hours to make anew.
  enum class Durability { Flushed, OnDisk };
  void commit(Durability durability = Durability::Flushed);

 private:
  std::filesystem::path target_;
  std::filesystem::path partial_;
  AtomicFileTexts texts_;
  std::ofstream stream_;
  bool keepPartial_ = false;  // moved to its target, or all that is left of it
};

}  // namespace quor
