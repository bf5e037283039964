// Lines that no client would send, and some that it nearly would. OMBRELUX_FUZZ_LINES sets how many.
#include <unistd.h>

#include <fstream>

#include "base/split_mix64.h"
#include "mcp/server_fixture.h"
#include "mcp/tool_list.h"

namespace quor::test {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr double kMaxGrown = 512;  // MiB; it holds back what was freed
#else
constexpr double kMaxGrown = 64;
#endif

// Paths are relative to an almost empty folder, so that whatever becomes of them leads nowhere else.
class FuzzTest : public ServerTest {
 protected:
  FuzzTest() {
    std::filesystem::create_directories(folder_ / "work");
    std::filesystem::current_path(folder_ / "work");
  }
  ~FuzzTest() override { std::filesystem::current_path(before_); }

  size_t pick(size_t count) { return static_cast<size_t>(random_.next() % count); }
  bool chance(size_t in) { return pick(in) == 0; }

  std::string bytes() {
    std::string line(pick(200), '\0');
    for (char& c : line) c = static_cast<char>(random_.next());
    std::erase(line, '\n');
    return line;
  }

  Json value(int depth = 0) {
    const std::vector<Json> plain = {nullptr,
                                     chance(2),
                                     static_cast<int64_t>(random_.next()),
                                     static_cast<double>(static_cast<int64_t>(random_.next())) * 1e280,
                                     missing_,
                                     known_,
                                     "file:///" + std::string(pick(30), '%'),
                                     std::string(pick(3000), "a\0\x7f%"[pick(4)]),
                                     words_[pick(words_.size())]};
    const size_t kind = pick(plain.size() + (depth < 4 ? 3 : 0));
    if (kind < plain.size()) return plain[kind];
    if (kind > plain.size()) return Json::array({value(depth + 1), value(depth + 1)});
    return Json::object({{words_[pick(words_.size())], value(depth + 1)}, {"", value(depth + 1)}});
  }

  // Arguments that fit and some that do not; nothing in them leads to a folder that could be written to.
  Json arguments(const mcp::ToolInfo& tool) {
    Json given = Json::object();
    for (const mcp::Argument& argument : tool.arguments) {
      if (argument.required ? chance(10) : !chance(4)) continue;
      const bool path = argument.type == mcp::ArgumentType::Path || argument.type == mcp::ArgumentType::Paths;
      if (path && !chance(5)) {
        given[argument.name] = tool.readOnly && chance(2) ? known_ : missing_;
      } else {
        given[argument.name] = chance(2) ? value() : Json(pick(100));
      }
    }
    if (chance(20)) given[words_[pick(words_.size())]] = value();
    return given;
  }

  std::string request() {
    static const std::vector<std::string> methods = {"initialize",     "ping",           "tools/list",
                                                     "tools/call",     "tools/call",     "tools/call",
                                                     "resources/list", "resources/read", "resources/templates/list"};
    Json message = {{"jsonrpc", "2.0"}, {"id", pick(1000)}, {"method", methods[pick(methods.size())]}};
    const mcp::ToolInfo& tool = mcp::toolList()[pick(mcp::toolList().size())];
    message["params"] = {{"name", tool.name}, {"arguments", arguments(tool)}, {"uri", value()}};
    if (chance(4)) message["params"]["protocolVersion"] = chance(2) ? Json("2025-03-26") : value();
    if (chance(8)) message[words_[pick(words_.size())]] = value();
    if (chance(30)) message.erase("id");
    if (chance(30)) message = Json::array({message, value()});
    return message.dump(-1, ' ', chance(2), Json::error_handler_t::replace);
  }

  std::string mutated(std::string line) {
    for (size_t times = 1 + pick(4); times > 0 && !line.empty(); --times) {
      const size_t at = pick(line.size());
      switch (pick(5)) {
        case 0:
          line[at] = static_cast<char>(random_.next());
          break;
        case 1:
          line.erase(at, pick(20));
          break;
        case 2:
          line.insert(at, line.substr(pick(line.size()), pick(50)));
          break;
        case 3:
          line.insert(at, std::string(pick(100), "[{\"\\"[pick(4)]));
          break;
        default:
          line.resize(at);
      }
    }
    std::ranges::replace(line, '\n', ' ');
    return line;
  }

  static void expectAnswer(const std::string& line, const std::string& sent) {
    const Json answer = Json::parse(line, nullptr, false);
    for (const Json& one : answer.is_array() ? answer : Json::array({answer})) {
      const bool valid = one.is_object() && one.value("jsonrpc", "") == "2.0" && one.contains("id") &&
                         one.contains("result") != one.contains("error") && line.find('\n') == std::string::npos;
      ASSERT_TRUE(valid) << sent << "\n" << line;
    }
  }

  const std::filesystem::path before_ = std::filesystem::current_path();
  SplitMix64 random_{20250301};
  const std::string missing_ = "missing/é";
  const std::string known_ = "known";
  const std::vector<std::string> words_ = {"jsonrpc",    "id",  "method",   "params", "name",   "arguments",
                                           "uri",        "2.0", "job",      "media",  "ping",   "ombrelux_run",
                                           "tools/call", "\"",  "\xc3\xa9", "{",      "project"};
};

// Pages in memory, of 4 KiB.
size_t residentPages() {
  size_t all = 0;
  size_t resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident;
}

TEST_F(FuzzTest, EveryLineIsAnsweredOrPassedOver) {
  writeFile(folder_ / "work/known/project.json", "{}");
  writeFile(folder_ / "work/known/output/training.log", "==== \xff\n");
  const char* asked = std::getenv("OMBRELUX_FUZZ_LINES");
  const size_t lines = asked ? std::stoul(asked) : 5000;
  size_t left = lines;
  size_t answers = 0;
  size_t start = 0;
  std::string sent;
  std::string rest;
  server_.serve({[&](std::span<char> buffer) -> size_t {
                   if (rest.empty() && left > 0) {
                     if (lines - left == lines / 10) start = residentPages();
                     --left;
                     rest = sent = (chance(5) ? bytes() : chance(3) ? request() : mutated(request())) + "\n";
                   }
                   const size_t count = std::min(rest.size(), buffer.size());
                   std::copy_n(rest.begin(), count, buffer.begin());
                   rest.erase(0, count);
                   return count;
                 },
                 [&](std::string_view line) {
                   ++answers;
                   EXPECT_TRUE(line.ends_with('\n'));
                   expectAnswer(std::string(line.substr(0, line.size() - 1)), sent);
                   return !HasFatalFailure();
                 }});
  const double grown = (static_cast<double>(residentPages()) - static_cast<double>(start)) * 4 / 1024;
  std::printf("%zu lines, %zu answers, %.1f MiB more than after the first tenth\n", lines, answers, grown);
  EXPECT_EQ(left, 0u);
  EXPECT_GT(answers, lines / 2);
  EXPECT_LT(grown, kMaxGrown);
  EXPECT_EQ(ask("ping")["result"], Json::object());
  EXPECT_FALSE(std::filesystem::exists("missing"));
}

}  // namespace
}  // namespace quor::test
