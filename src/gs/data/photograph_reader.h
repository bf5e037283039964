// One thread that reads photographs into mapped memory ahead of the steps that train on them.
#pragma once

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include "gs/data/host_image_cache.h"

namespace quor::gs {

class PhotographReader {
 public:
  PhotographReader() = default;
  ~PhotographReader();  // waits for the photograph being read and drops the others
  PhotographReader(const PhotographReader&) = delete;
  PhotographReader& operator=(const PhotographReader&) = delete;

  // Reads in the order of the calls. `to` has room for image.bytes() and stays valid until the future is ready; the
  // future throws what StoredImage::read() throws. The first call starts the thread.
  std::future<void> read(StoredImage image, uint8_t* to);

 private:
  void run();

  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  std::deque<std::packaged_task<void()>> tasks_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace quor::gs
