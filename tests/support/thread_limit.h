// Makes the system refuse further threads, as it does at a limit of the user's or a container's. This header replaces
// pthread_create for the whole program: one source file of it includes the header.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace quor::test {

inline std::atomic<int> threadsLeft = -1;  // below 0: no limit

// While it lives, `count` threads can be made.
class ThreadLimit {
 public:
  explicit ThreadLimit(int count) { threadsLeft = count; }
  ~ThreadLimit() { threadsLeft = -1; }
  ThreadLimit(const ThreadLimit&) = delete;
  ThreadLimit& operator=(const ThreadLimit&) = delete;
};

}  // namespace quor::test

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__clang__)
#define SKIP_WITHOUT_THREAD_LIMIT() GTEST_SKIP() << "sanitizers need a pthread_create of their own"
#else
#define SKIP_WITHOUT_THREAD_LIMIT() static_cast<void>(0)

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*work)(void*),
                              void* argument) noexcept {
  if (quor::test::threadsLeft >= 0 && quor::test::threadsLeft-- <= 0) {
    quor::test::threadsLeft = 0;
    return EAGAIN;
  }
  static const auto real = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  return real(thread, attributes, work, argument);
}
#endif
