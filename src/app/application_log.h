// The log of one command. Commands run unattended for hours: what they log is in the user's application log file too.
#pragma once

#include "base/log/log_store.h"

namespace quor {

class ApplicationLog : public LogStore {
 public:
  // Opens the file and logs the start. A log file that cannot be opened is no reason to stop.
  ApplicationLog();
};

}  // namespace quor
