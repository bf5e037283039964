#include "app/application_log.h"

#include <string>

#include "base/crash/crash_handler.h"
#include "base/files/paths.h"
#include "base/version.h"

namespace quor {

namespace {

constexpr size_t kCapacity = 5000;

}  // namespace

ApplicationLog::ApplicationLog() : LogStore(kCapacity) {
  openFile(applicationLogFile());
  mirrorTo(crashLogTail());
  info(std::string("Ombrelux ") + kVersion + " starting");
}

}  // namespace quor
