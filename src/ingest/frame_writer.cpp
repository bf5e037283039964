#include "ingest/frame_writer.h"

#include <algorithm>
#include <new>

#include "ingest/photo/jpeg_encoder.h"
#include "ingest/video/color_matrix.h"

namespace quor {
namespace {

constexpr size_t kCapacity = 16;  // pictures that wait

}  // namespace

FrameWriter::FrameWriter(int jpegQuality) {
  const size_t count = std::clamp<size_t>(std::thread::hardware_concurrency(), 1, 8);
  for (size_t i = 0; i < count; ++i) workers_.emplace_back([this, jpegQuality] { work(jpegQuality); });
}

FrameWriter::~FrameWriter() {
  stop(true);
}

void FrameWriter::write(const std::filesystem::path& path, FramePtr frame) {
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return failure_ || jobs_.size() < kCapacity; });
    if (failure_) std::rethrow_exception(failure_);
    jobs_.push_back({path, std::move(frame)});
  }
  changed_.notify_all();
}

void FrameWriter::finish() {
  stop(false);
  if (failure_) std::rethrow_exception(failure_);
}

void FrameWriter::stop(bool dropWaiting) {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    if (dropWaiting) jobs_.clear();
  }
  changed_.notify_all();
  for (std::thread& worker : workers_) worker.join();
  workers_.clear();
}

void FrameWriter::work(int jpegQuality) {
  try {
    encodeJobs(jpegQuality);
  } catch (...) {
    const std::lock_guard lock(mutex_);
    if (!failure_) failure_ = std::current_exception();
    jobs_.clear();
  }
  changed_.notify_all();
}

void FrameWriter::encodeJobs(int jpegQuality) {
  JpegEncoder encoder(jpegQuality);
  while (true) {
    Job job;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return stopping_ || failure_ || !jobs_.empty(); });
      if (jobs_.empty() || failure_) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    changed_.notify_all();
    if (av_frame_make_writable(job.frame.get()) < 0) throw std::bad_alloc();
    convertToJpegMatrix(*job.frame);
    writeFrameFile(job.path, encoder.encode(*job.frame));
  }
}

}  // namespace quor
