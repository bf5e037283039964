#include "base/process/own_stdio.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace quor {
namespace {

// A pipe in the place of standard output.
class OwnStdioTest : public ::testing::Test {
 protected:
  OwnStdioTest() {
    std::fflush(stdout);
    signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(pipe(pipe_.data()), 0);
    dup2(pipe_[1], STDOUT_FILENO);
    close(pipe_[1]);
  }
  ~OwnStdioTest() override {
    std::fflush(stdout);
    dup2(before_, STDOUT_FILENO);
    close(before_);
  }

  const int before_ = dup(STDOUT_FILENO);
  std::array<int, 2> pipe_{};
};

TEST_F(OwnStdioTest, NothingElseReachesTheReader) {
  std::printf("before\n");
  {
    OwnStdio own;
    std::printf("a library\n");
    EXPECT_EQ(std::system("echo a child"), 0);
    EXPECT_TRUE(own.write("message\n"));
    std::printf("a library that does not flush");
  }
  std::printf("after\n");
  std::fflush(stdout);
  std::array<char, 200> text{};
  const ssize_t count = read(pipe_[0], text.data(), text.size());
  EXPECT_EQ(std::string(text.data(), static_cast<size_t>(count)), "before\nmessage\nafter\n");
}

TEST_F(OwnStdioTest, AReaderThatHasGoneIsNoticed) {
  OwnStdio own;
  close(pipe_[0]);
  EXPECT_FALSE(own.write("message\n"));
}

}  // namespace
}  // namespace quor
