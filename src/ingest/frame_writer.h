// Pictures become JPEG files on worker threads while the caller decodes on. The queue is short: a caller that is faster
// than the workers waits, so memory stays bounded. Where the system grants no thread, write() encodes itself.
#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <filesystem>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "ingest/photo/jpeg_encoder.h"
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
  std::optional<JpegEncoder> own_;  // of the caller's thread, where there are no workers
  std::vector<std::jthread> workers_;
};

}  // namespace quor
