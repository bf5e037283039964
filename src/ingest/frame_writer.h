// Pictures become JPEG files on worker threads while the caller decodes on. The queue is short: a caller that is faster
// than the workers waits, so memory stays bounded.
#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

#include "ingest/video/ffmpeg_support.h"

namespace quor {

class FrameWriter {
 public:
  explicit FrameWriter(int jpegQuality);
  ~FrameWriter();  // pictures that still wait are dropped
  FrameWriter(const FrameWriter&) = delete;
  FrameWriter& operator=(const FrameWriter&) = delete;

  // The picture is YUVJ420P and belongs to the writer from now on. Both throw the first failure of the workers
  // (IngestError); after finish() every file is complete.
  void write(const std::filesystem::path& path, FramePtr frame);
  void finish();

 private:
  struct Job {
    std::filesystem::path path;
    FramePtr frame;
  };

  void work(int jpegQuality);
  void encodeJobs(int jpegQuality);
  void stop(bool dropWaiting);

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Job> jobs_;
  bool stopping_ = false;
  std::exception_ptr failure_;
  std::vector<std::thread> workers_;
};

}  // namespace quor
