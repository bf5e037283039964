// A server whose jobs train on a trainer that the test leads.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/files/paths.h"
#include "mcp/server.h"
#include "support/bare_dataset.h"
#include "support/fake_trainer.h"
#include "support/temp_folder.h"
#include "support/wait_until.h"

namespace quor::test {

using mcp::Json;

// The test keeps the trainer that a job is given.
class LentTrainer : public gs::TrainingService {
 public:
  explicit LentTrainer(FakeTrainer& trainer) : trainer_(trainer) {}
  void startTraining(gs::TrainJob job) override { trainer_.startTraining(std::move(job)); }
  void requestStop() override { trainer_.requestStop(); }
  void cancel() override { trainer_.cancel(); }
  bool running() const override { return trainer_.running(); }
  gs::TrainStatus status() const override { return trainer_.status(); }
  std::optional<gs::TrainResult> wait() override { return trainer_.wait(); }

 private:
  FakeTrainer& trainer_;
};

class ServerTest : public ::testing::Test {
 protected:
  Json ask(const std::string& method, const Json& params = {}) {
    Json request = {{"jsonrpc", "2.0"}, {"id", 7}, {"method", method}};
    if (!params.is_null()) request["params"] = params;
    return answerTo(request.dump());
  }
  Json answerTo(const std::string& line) {
    const auto answer = server_.answer(line);
    return answer ? Json::parse(*answer) : Json();
  }
  Json call(const std::string& tool, const Json& arguments) {
    return ask("tools/call", {{"name", tool}, {"arguments", arguments}})["result"];
  }
  // The text of a tool that must succeed, as the document that it is.
  Json told(const std::string& tool, const Json& arguments) {
    const Json result = call(tool, arguments);
    EXPECT_EQ(result["isError"], false) << result.dump();
    return Json::parse(result["content"][0]["text"].get<std::string>());
  }
  // The sentence of a tool that must fail.
  std::string refusal(const std::string& tool, const Json& arguments) {
    const Json result = call(tool, arguments);
    EXPECT_EQ(result["isError"], true) << result.dump();
    return result["content"][0]["text"];
  }

  std::string import(const std::filesystem::path& dataset, Json arguments = Json::object()) {
    arguments["reconstruction"] = toUtf8(dataset);
    const std::string job = told("ombrelux_import", arguments)["job"];
    trainer_.waitUntilStarted();
    return job;
  }
  std::string state(const std::string& job) { return told("ombrelux_job_status", {{"job", job}})["state"]; }
  void waitUntilEnded(const std::string& job) {
    ASSERT_TRUE(waitUntil([&] { return state(job) != "running"; })) << "the job does not end";
  }

  TempFolder folder_;
  FakeTrainer trainer_;
  std::string noDevice_;
  std::atomic<int> opened_ = 0;
  LogStore log_{100};
  mcp::Server server_{log_,
                      [this] {
                        ++opened_;
                        if (!noDevice_.empty()) throw std::runtime_error(noDevice_);
                        return mcp::Equipment{Tools{ToolLocation{"/no/colmap", "settings"}, {}}, nullptr,
                                              std::make_unique<LentTrainer>(trainer_)};
                      },
                      LogLevel::Error};
};

}  // namespace quor::test
