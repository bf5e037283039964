#include "base/process/child_process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "base/process/output_lines.h"
#include "support/scripts.h"
#include "support/wait_until.h"

namespace quor {
namespace {

using test::readFile;
using test::TempFolder;
using test::thrownText;
using test::writeScript;
using testing::ElementsAre;
using testing::HasSubstr;

struct Outcome {
  ChildResult result;
  std::vector<std::string> lines;
};

Outcome run(const ChildCommand& command) {
  Outcome outcome;
  outcome.result = runChildProcess(
      command, [&](std::string_view line) { outcome.lines.emplace_back(line); }, [] { return false; });
  return outcome;
}

class ChildProcess : public testing::Test {
 protected:
  Outcome runScript(const std::string& body, std::vector<std::string> arguments = {}) const {
    return run({script(body), std::move(arguments), {}});
  }
  std::filesystem::path script(const std::string& body) const {
    return writeScript(folder_ / "it's a \"sh\".sh", body);
  }

  const TempFolder folder_;
};

// Whether the process ends; a zombie that its parent has not collected counts.
bool vanishes(pid_t pid) {
  return test::waitUntil([pid] {
    if (kill(pid, 0) != 0) return true;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(stat, text);
    return text.find(") Z ") != std::string::npos;
  });
}

TEST_F(ChildProcess, TellsHowTheChildEnded) {
  EXPECT_EQ(runScript("").result.exitCode, 0);
  EXPECT_EQ(runScript("exit 3").result.exitCode, 3);
  EXPECT_EQ(runScript("kill -9 $$").result.exitCode, 128 + SIGKILL);
  EXPECT_FALSE(runScript("kill -9 $$").result.cancelled);
}

TEST_F(ChildProcess, DrainsWhateverIsPrinted) {
  EXPECT_THAT(runScript("printf 'a\\n\\n'; printf 'b\\n' >&2; printf '10%%\\r20%%\\r\\n\\377x\\nlast'").lines,
              ElementsAre("a", "b", "10%", "20%", "\uFFFDx", "last"));
  size_t bytes = 0;
  for (const std::string& line : runScript("head -c 3000000 /dev/zero | tr '\\0' y").lines) bytes += line.size();
  EXPECT_EQ(bytes, 3'000'000U);
  // Goes on for long enough that its closed output is seen first.
  EXPECT_EQ(runScript("echo a; exec >&- 2>&-; sleep 0.1; exit 4").result.exitCode, 4);
}

TEST_F(ChildProcess, EndsWhatTheChildLeftBehind) {
  // One holds the output open; the other has left the group and the session, and its parent has gone.
  const std::string pidFile = (folder_ / "pid").string();
  const Outcome outcome = runScript(
      "sleep 300 & echo $!\n"
      "(setsid sh -c 'echo $$ > \"$0\"; exec sleep 300' \"$1\" &)\n"
      "until [ -s \"$1\" ]; do sleep 0.01; done",
      {pidFile});
  ASSERT_EQ(outcome.lines.size(), 1U);
  EXPECT_TRUE(vanishes(std::stoi(outcome.lines[0])));
  EXPECT_TRUE(vanishes(std::stoi(readFile(pidFile))));
}

TEST_F(ChildProcess, EndsAllWhenCancelledOrWhenTheListenerThrows) {
  const std::filesystem::path program = script("trap '' TERM HUP INT\nsleep 300 &\necho $!\nwait");
  std::string pid;
  const ChildResult result = runChildProcess(
      {program, {}, {}}, [&](std::string_view line) { pid = line; }, [&] { return !pid.empty(); });
  EXPECT_TRUE(result.cancelled);
  EXPECT_TRUE(vanishes(std::stoi(pid)));
  EXPECT_EQ(thrownText([&] {
              runChildProcess(
                  {program, {}, {}},
                  [&](std::string_view line) {
                    pid = line;
                    throw std::runtime_error("enough");
                  },
                  [] { return false; });
            }),
            "enough");
  EXPECT_TRUE(vanishes(std::stoi(pid)));
}

TEST_F(ChildProcess, EndsAllWhenTheProgramIsKilled) {
  const std::filesystem::path pidFile = folder_ / "pids";
  const std::filesystem::path program =
      script("sleep 300 & one=$!\nsetsid sleep 300 & echo $$ $one $! > \"$1.new\"\nmv \"$1.new\" \"$1\"\nwait");
  const pid_t parent = fork();
  ASSERT_GE(parent, 0);
  if (parent == 0) {
    runChildProcess(
        {program, {pidFile.string()}, {}}, [](std::string_view) {}, [] { return false; });
    _exit(0);
  }
  EXPECT_TRUE(test::waitUntil([&] { return std::filesystem::exists(pidFile); }));
  kill(parent, SIGKILL);
  waitpid(parent, nullptr, 0);
  std::ifstream pids(pidFile);
  pid_t pid = 0;
  int count = 0;
  for (; pids >> pid; ++count) EXPECT_TRUE(vanishes(pid)) << count;
  EXPECT_EQ(count, 3);
}

size_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

TEST_F(ChildProcess, LeavesNothingInThisProcess) {
  const std::filesystem::path program = script("echo a & exit 1");
  const size_t before = openDescriptors();
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < 10; ++j) {
        EXPECT_EQ(run({program, {}, {}}).result.exitCode, 1);
        EXPECT_THROW(run({folder_ / "none", {}, {}}), ChildStartError);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(ChildProcess, StartsWithCleanSignalsAndOnlyTheStandardStreams) {
  const int held = open("/dev/null", O_RDONLY);  // not closed on exec
  sigset_t blocked, before;
  sigfillset(&blocked);
  struct sigaction pipe = {};
  sigaction(SIGPIPE, nullptr, &pipe);
  signal(SIGPIPE, SIG_IGN);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const std::vector<std::string> lines = runScript("exec grep -E '^Sig(Blk|Ign)' /proc/self/status").lines;
  const std::vector<std::string> streams = runScript("exec ls /proc/self/fd").lines;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  sigaction(SIGPIPE, &pipe, nullptr);
  close(held);
  for (const std::string& line : lines) {
    EXPECT_THAT(line, HasSubstr("\t0000000000000000"));
  }
  EXPECT_EQ(lines.size(), 2U);
  EXPECT_THAT(streams, ElementsAre("0", "1", "2", "3"));  // the last is the list itself
}

TEST(OutputLines, CutsNoCharacter) {
  std::vector<std::string> pieces;
  const std::function<void(std::string_view)> keep = [&](std::string_view line) { pieces.emplace_back(line); };
  OutputLines lines(keep);
  const std::string head(OutputLines::kLongestLine - 1, 'x');
  for (const char byte : head + "写b") lines.add({&byte, 1});
  lines.finish();
  EXPECT_THAT(pieces, ElementsAre(head, "写b"));
}

TEST(OutputLines, RepairsUtf8) {
  EXPECT_EQ(repairUtf8("aé写𝄞"), "aé写𝄞");
  EXPECT_EQ(repairUtf8("\xe5\x86z"), "\uFFFDz");                          // cut short: one piece
  EXPECT_EQ(repairUtf8("\xc0\xaf"), "\uFFFD\uFFFD");                      // overlong
  EXPECT_EQ(repairUtf8("\xed\xa0\x80"), "\uFFFD\uFFFD\uFFFD");            // a surrogate
  EXPECT_EQ(repairUtf8("\xf4\x90\x80\x80"), "\uFFFD\uFFFD\uFFFD\uFFFD");  // above U+10FFFF
}

}  // namespace
}  // namespace quor
