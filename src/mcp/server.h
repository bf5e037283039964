// The Model Context Protocol server (https://modelcontextprotocol.io): lets an AI assistant build splats, follow the
// work and look at projects, over JSON-RPC messages, one a line. Requests are answered one after another on the thread
// of serve(), at once unless they look through folders or open videos; builds are jobs on a thread of their own, one at
// a time.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "base/log/log_store.h"
#include "mcp/job.h"
#include "mcp/json_rpc.h"
#include "mcp/line_reader.h"
#include "mcp/training_logs.h"

namespace quor::mcp {

// A line that is longer is not read but answered with an error.
inline constexpr size_t kLongestLine = size_t{4} << 20;

struct Channel {
  LineReader::Source read;
  std::function<bool(std::string_view)> write;  // false when the reader has gone
};

class Server {
 public:
  // `open` is called for each job on the thread of the request; what it throws is the tool's answer. A batch that loses
  // the GPU calls it again on its own thread. Entries that are logged from now on, from `least` up, go to standard
  // error,
  // "[ombrelux] " before each.
  Server(LogStore& log, OpenEquipment open, LogLevel least = LogLevel::Information);
  ~Server();  // stops the running job as finish() does
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Serves until the client closes its end or stops reading, or until an interrupt; then ends the job and returns.
  void serve(const Channel& channel);

  // The answer to one line, if one is due.
  std::optional<std::string> answer(std::string_view line);

  // Stops the running job at its next safe point, training with scene and checkpoint written, and waits for it. A
  // second interrupt cancels it.
  void finish();

 private:
  using ToolCall = std::string (Server::*)(const Json&);

  Document callMethod(const std::string& method, const Json& params);
  Document initialize(const Json& params);
  Document callTool(const Json& params);
  Document readResource(const Json& params);
  void learnLogs();

  std::string run(const Json& given);
  std::string import(const Json& given);
  std::string train(const Json& given);
  std::string createBatch(const Json& given);
  std::string runBatch(const Json& given);
  std::string jobStatus(const Json& given);
  std::string jobResult(const Json& given);
  std::string listProjects(const Json& given);
  std::string projectInfo(const Json& given);
  std::string captureAdvice(const Json& given);
  static const std::map<std::string, ToolCall>& toolCalls();

  void requireIdle(bool batch) const;
  Document start(std::unique_ptr<Job> job);
  void drive(Job& job);
  const Job& jobNamed(const std::string& id) const;
  std::string nextId();
  void say(const std::string& text);
  void echo();

  LogStore& log_;
  const OpenEquipment open_;
  const LogLevel least_;
  std::mutex echoMutex_;  // guards the next
  uint64_t echoed_;

  std::string version_;
  TrainingLogs logs_;
  uint32_t lastId_;
  std::map<std::string, std::unique_ptr<Job>> jobs_;
  Job* current_ = nullptr;  // the last that was started
  std::thread worker_;
};

}  // namespace quor::mcp
