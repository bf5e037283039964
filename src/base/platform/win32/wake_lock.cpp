#include "base/desktop/wake_lock.h"

#include "base/platform/win32/windows_api.h"

namespace quor {

struct WakeLock::State {};

WakeLock::WakeLock(const std::string&) {
  SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
}

WakeLock::~WakeLock() {
  SetThreadExecutionState(ES_CONTINUOUS);
}

}  // namespace quor
