#include "mcp/server.h"

#include <chrono>
#include <cstdio>

#include "base/failures.h"
#include "base/process/terminal.h"
#include "base/split_mix64.h"
#include "base/text/text.h"
#include "base/version.h"
#include "mcp/tool_list.h"
#include "pipeline/guidance.h"

namespace quor::mcp {

namespace {

constexpr std::chrono::milliseconds kInterruptCheck{50};
constexpr const char* kVersions[] = {"2024-11-05", "2025-03-26", "2025-06-18"};
constexpr const char* kFirstWithoutLists = "2025-06-18";

Document textResult(const std::string& text, bool isError) {
  Document result;
  result["content"] = Document::array({{{"type", "text"}, {"text", text}}});
  result["isError"] = isError;
  return result;
}

Json objectOf(const Json& params, const char* name) {
  Json member = params.is_object() ? params.value(name, Json()) : Json();
  if (member.is_null()) return Json::object();
  if (!member.is_object()) throw RpcError(kInvalidParams, std::string(name) + " must be an object");
  return member;
}

std::string textOf(const Json& params, const char* name) {
  const Json member = params.is_object() ? params.value(name, Json()) : Json();
  if (member.is_null()) throw RpcError(kInvalidParams, std::string(name) + " is required");
  if (!member.is_string()) throw RpcError(kInvalidParams, std::string(name) + " must be a text");
  return member.get<std::string>();
}

}  // namespace

// Job ids begin anywhere: the id of an earlier server's job must not name one of this server's. From the clock, since
// std::random_device would ask for a newer C library than the portable build may.
static uint32_t firstId() {
  const auto now = std::chrono::system_clock::now().time_since_epoch().count();
  return static_cast<uint32_t>(SplitMix64(static_cast<uint64_t>(now)).next());
}

Server::Server(LogStore& log, OpenEquipment open, LogLevel least)
    : log_(log),
      open_(std::move(open)),
      least_(least),
      echoed_(log.lastSequence()),
      version_(kVersions[0]),
      lastId_(firstId()) {}

Server::~Server() {
  finish();
}

void Server::serve(const Channel& channel) {
  say(std::string("Ombrelux MCP server ready — ") + kVersion);
  LineReader reader(channel.read, kLongestLine);
  std::string line;
  for (LineReader::Got got = reader.next(line); got != LineReader::Got::End; got = reader.next(line)) {
    const bool tooLong = got == LineReader::Got::TooLong;
    const auto reply =
        tooLong ? errorLine(kInvalidRequest, formatText("A message may have %zu bytes at most.", kLongestLine))
                : answer(line);
    echo();
    if (reply && !channel.write(*reply + "\n")) break;
  }
  say(interruptCount() > 0 ? "interrupted" : "client disconnected");
  finish();
}

std::optional<std::string> Server::answer(std::string_view line) {
  const auto call = [this](const std::string& method, const Json& params) { return callMethod(method, params); };
  return answerLine(line, call, version_ != kFirstWithoutLists);
}

Document Server::callMethod(const std::string& method, const Json& params) {
  if (method == "initialize") return initialize(params);
  if (method == "ping") return Document::object();
  if (method == "tools/list") return describeTools();
  if (method == "tools/call") return callTool(params);
  if (method == "resources/templates/list") return logs_.templates();
  if (method == "resources/read") return readResource(params);
  if (method == "resources/list") {
    learnLogs();
    return logs_.list();
  }
  throw RpcError(kMethodNotFound, "Unknown method: " + method);
}

Document Server::initialize(const Json& params) {
  const Json wanted = params.is_object() ? params.value("protocolVersion", Json()) : Json();
  version_ = kVersions[0];
  for (const char* known : kVersions) {
    if (wanted == known) version_ = known;
  }
  Document result;
  result["protocolVersion"] = version_;
  result["capabilities"] = {{"tools", Document::object()}, {"resources", Document::object()}};
  result["serverInfo"] = {{"name", "ombrelux"}, {"version", kVersion}};
  result["instructions"] = guidanceText();
  return result;
}

Document Server::callTool(const Json& params) {
  const std::string name = textOf(params, "name");
  const ToolInfo& tool = toolNamed(name);
  const Json given = objectOf(params, "arguments");
  try {
    return textResult((this->*toolCalls().at(name))(checked(tool.arguments, given)), false);
  } catch (const std::exception& error) {
    return textResult(failureText(error), true);
  }
}

Document Server::readResource(const Json& params) {
  const std::string uri = textOf(params, "uri");
  learnLogs();
  return logs_.read(uri);
}

void Server::learnLogs() {
  for (const auto& [id, job] : jobs_) {
    for (const std::filesystem::path& root : job->projects()) logs_.add(root);
  }
}

void Server::requireIdle(bool batch) const {
  if (!current_ || !current_->running()) return;
  const std::string running = std::string(current_->kind()) + " job is already running (" + current_->id();
  throw std::runtime_error(running + (batch ? "); poll it with ombrelux_job_status and start this one when it finishes."
                                            : "). Ombrelux builds one project at a time; poll it with "
                                              "ombrelux_job_status and start this one when it finishes."));
}

std::string Server::nextId() {
  return formatText("job-%08x", ++lastId_);
}

Document Server::start(std::unique_ptr<Job> job) {
  if (worker_.joinable()) worker_.join();
  Document document;
  document["message"] = "Started. Poll ombrelux_job_status with this job id.";
  document["job"] = job->id();
  const std::string id = job->id();
  const auto entry = jobs_.emplace(id, std::move(job)).first;
  try {
    worker_ = std::thread([this, started = entry->second.get()] { drive(*started); });
  } catch (...) {
    jobs_.erase(entry);  // it would count as running for ever
    throw;
  }
  current_ = entry->second.get();
  return document;
}

void Server::drive(Job& job) {
  log_.info(std::string(job.kind()) + " " + job.id() + " started");
  job.run([this] { echo(); });
  log_.info(std::string(job.kind()) + " " + job.id() + " ended: " + job.status()["detail"].get<std::string>());
  echo();
}

void Server::finish() {
  const bool running = current_ && current_->running();
  if (running) {
    say(std::string("stopping ") + current_->kind() + " " + current_->id());
    current_->stop();
    // The first interrupt is what ended serve(), or comes from a client that has little patience with a server whose
    // input it has closed; neither is a reason to throw the work away.
    while (!current_->waitFor(kInterruptCheck)) {
      if (interruptCount() > 1) current_->cancel();
    }
  }
  if (worker_.joinable()) worker_.join();
}

const Job& Server::jobNamed(const std::string& id) const {
  const auto found = jobs_.find(id);
  if (found != jobs_.end()) return *found->second;
  throw std::runtime_error("No job " + id +
                           ". Jobs live only as long as this server, so one started by an earlier session is gone.");
}

void Server::say(const std::string& text) {
  log_.info(text);
  echo();
}

void Server::echo() {
  const std::lock_guard lock(echoMutex_);
  for (const LogEntry& entry : log_.entriesAfter(echoed_)) {
    echoed_ = entry.sequence;
    if (entry.level < least_) continue;
    std::fprintf(stderr, "[ombrelux] %s\n", withoutControls(levelPrefix(entry.level) + entry.text).c_str());
  }
}

}  // namespace quor::mcp
