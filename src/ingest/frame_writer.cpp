#include "ingest/frame_writer.h"

#include <new>

#include "base/parallel.h"
#include "ingest/video/color_matrix.h"

namespace quor {
namespace {

constexpr size_t kMaxWorkers = 8;
constexpr size_t kCapacity = 16;  // pictures that wait

void encode(JpegEncoder& encoder, const std::filesystem::path& path, AVFrame& frame) {
  if (av_frame_make_writable(&frame) < 0) throw std::bad_alloc();
  convertToJpegMatrix(frame);
  writeFrameFile(path, encoder.encode(frame));
}

}  // namespace

FrameWriter::FrameWriter(int jpegQuality) {
  workers_ = startThreads(processorCount(kMaxWorkers), [this, jpegQuality] { work(jpegQuality); });
  if (workers_.empty()) own_.emplace(jpegQuality);
}

FrameWriter::~FrameWriter() {
  stop(true);
}

void FrameWriter::write(const std::filesystem::path& path, FramePtr frame) {
  if (own_) return encode(*own_, path, *frame);
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
    encode(encoder, job.path, *job.frame);
  }
}

}  // namespace quor
