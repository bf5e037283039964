#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "base/crash/crash_handler.h"
#include "base/files/paths.h"
#include "base/log/log_store.h"

namespace quor {

// With external linkage, so that the compiler cannot resolve the call of missing().
struct AbstractForCrash {
  virtual ~AbstractForCrash() { callMissing(this); }  // the derived part is gone by then
  static void callMissing(AbstractForCrash* object) {
    AbstractForCrash* volatile unknown = object;
    unknown->missing();  // NOLINT(clang-analyzer-cplusplus.PureVirtualCall)
  }
  virtual void missing() = 0;
};
struct ConcreteForCrash : AbstractForCrash {
  void missing() override {}
};

namespace {

int* volatile nowhere = nullptr;
volatile int zero = 0;
volatile bool endless = true;

void crashByWriting() {
  *nowhere = 1;
}

// NOLINTNEXTLINE(misc-no-recursion): that is the purpose
int growStack(int depth) {
  volatile char frame[512] = {};
  frame[static_cast<size_t>(depth) % sizeof frame] = 1;
  const int below = endless ? growStack(depth + 1) : 0;
  return below + frame[0];  // used after the call, which keeps it from becoming a tail call
}

void crashByOverflow() {
  zero = growStack(0);
}

template <void crash()>
void crashOnThread() {
  std::thread([] {
    const ThreadCrashStack stack;
    crash();
  }).join();
}

void throwException() {
  throw std::runtime_error("An exception that nobody catches.");
}

void crashByException() noexcept {  // NOLINT(bugprone-exception-escape)
  throwException();
}

void crashByPureCall() {
  const ConcreteForCrash object;
}

void crashByDivision() {
  zero = 7 / zero;
}

struct Way {
  std::string_view name;
  void (*crash)();
};
constexpr Way kWays[] = {
    {"overflow", crashByOverflow},
    {"thread", crashOnThread<crashByWriting>},
    {"thread-overflow", crashOnThread<crashByOverflow>},
    {"terminate", crashByException},
    {"abort", std::abort},
    {"pure", crashByPureCall},
    {"divide", crashByDivision},
};

}  // namespace

void crashIfAsked(LogStore& log) {
  const std::string asked = environmentVariable("QUOR_TEST_CRASH").value_or("");
  if (asked.empty()) return;
  log.info("Crashing on purpose (QUOR_TEST_CRASH)");
  const auto* way = std::find_if(std::begin(kWays), std::end(kWays), [&](const Way& w) { return w.name == asked; });
  (way == std::end(kWays) ? crashByWriting : way->crash)();
}

}  // namespace quor
