#include "gs/data/photograph_reader.h"

#include <utility>

namespace quor::gs {

PhotographReader::~PhotographReader() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

std::future<void> PhotographReader::read(StoredImage image, uint8_t* to) {
  std::packaged_task<void()> task([image = std::move(image), to] { image.read(to); });
  std::future<void> done = task.get_future();
  const std::lock_guard lock(mutex_);
  if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
  tasks_.push_back(std::move(task));
  changed_.notify_all();
  return done;
}

void PhotographReader::run() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return ending_ || !tasks_.empty(); });
    if (ending_) return;
    std::packaged_task<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    lock.unlock();
    task();
    lock.lock();
  }
}

}  // namespace quor::gs
