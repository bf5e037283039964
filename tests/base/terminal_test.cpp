#include "base/process/terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace quor {
namespace {

TEST(Terminal, AClosedStreamLendsItsNumberToNoFile) {
  const int kept = dup(STDERR_FILENO);
  close(STDERR_FILENO);
  occupyClosedStreams();
  const int file = open("/dev/null", O_WRONLY);
  const ssize_t written = write(STDERR_FILENO, "lost", 4);
  dup2(kept, STDERR_FILENO);
  close(kept);
  EXPECT_GT(file, STDERR_FILENO);
  close(file);
  EXPECT_EQ(written, -1);
}

}  // namespace
}  // namespace quor
