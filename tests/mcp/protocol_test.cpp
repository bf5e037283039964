#include "mcp/server_fixture.h"
#include "mcp/tool_list.h"
#include "support/platform.h"

namespace quor::test {
namespace {

using ::testing::HasSubstr;

using ProtocolTest = ServerTest;

TEST_F(ProtocolTest, AgreesOnAVersion) {
  for (const char* known : {"2024-11-05", "2025-03-26", "2025-06-18"}) {
    EXPECT_EQ(ask("initialize", {{"protocolVersion", known}})["result"]["protocolVersion"], known);
  }
  for (const Json& other : {Json("2099-01-01"), Json(7), Json()}) {
    EXPECT_EQ(ask("initialize", {{"protocolVersion", other}})["result"]["protocolVersion"], "2024-11-05");
  }
  EXPECT_EQ(ask("ping")["result"], Json::object());
}

TEST_F(ProtocolTest, AnswersWhatIsNoRequestWithItsError) {
  const auto code = [this](const std::string& line) { return answerTo(line)["error"]["code"]; };
  for (const char* line : {"{", "nonsense", "\xff\xfe", "[1,", "\"\xc3\"", "{\"id\":1e999}"}) {
    EXPECT_EQ(code(line), -32700) << line;
  }
  for (const char* line : {"7", "null", "\"ping\"", "{}", "[]", R"({"jsonrpc":"2.0","id":1})",
                           R"({"jsonrpc":"2.0","id":1,"method":5})", R"({"jsonrpc":"1.0","id":1,"method":"ping"})",
                           R"({"jsonrpc":"2.0","id":{},"method":"ping"})", R"({"jsonrpc":"2.0","id":1,"result":{}})"}) {
    EXPECT_EQ(code(line), -32600) << line;
  }
  EXPECT_EQ(answerTo(R"({"jsonrpc":"2.0","id":"a"})").dump(),
            R"({"error":{"code":-32600,"message":"Invalid request"},"id":"a","jsonrpc":"2.0"})");
  EXPECT_EQ(code(std::string(100000, '[')), -32600);
  EXPECT_EQ(code(R"({"jsonrpc":"2.0","id":1,"method":"ping","params":[[[[[[["]]"]]]]]]]})"), -32602);

  EXPECT_EQ(ask("sampling/x")["error"], (Json{{"code", -32601}, {"message", "Unknown method: sampling/x"}}));
  EXPECT_EQ(ask("tools/call")["error"]["message"], "name is required");
  EXPECT_EQ(ask("tools/call", {{"name", "rm"}})["error"], (Json{{"code", -32602}, {"message", "Unknown tool: rm"}}));
  EXPECT_EQ(ask("tools/call", {{"name", "ombrelux_run"}, {"arguments", {1}}})["error"]["code"], -32602);
  EXPECT_EQ(ask("resources/read")["error"]["message"], "uri is required");
}

TEST_F(ProtocolTest, NotificationsAndBlankLinesAreNotAnswered) {
  for (const char* line : {"", " \r", R"({"jsonrpc":"2.0","method":"notifications/initialized"})",
                           R"({"jsonrpc":"2.0","method":"no/such","params":{}})",
                           R"({"jsonrpc":"2.0","method":"tools/call","params":{"name":"ombrelux_capture_advice"}})"}) {
    EXPECT_FALSE(server_.answer(line)) << line;
  }
}

TEST_F(ProtocolTest, ListsOfMessagesAreAnsweredWhereTheVersionHasThem) {
  const std::string list =
      R"([{"jsonrpc":"2.0","id":1,"method":"ping"},{"jsonrpc":"2.0","method":"ping"},{"jsonrpc":"2.0","id":2}])";
  ask("initialize", {{"protocolVersion", "2025-03-26"}});
  const Json answers = answerTo(list);
  ASSERT_EQ(answers.size(), 2u);
  EXPECT_EQ(answers[0]["result"], Json::object());
  EXPECT_EQ(answers[1]["error"]["code"], -32600);
  EXPECT_FALSE(server_.answer(R"([{"jsonrpc":"2.0","method":"ping"}])"));
  ask("initialize", {{"protocolVersion", "2025-06-18"}});
  EXPECT_EQ(answerTo(list)["error"]["code"], -32600);
}

TEST_F(ProtocolTest, ALineWithoutEndTakesNoMemoryAndTheNextOneIsAnswered) {
  size_t left = 100 << 20;
  const std::string ping = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";
  std::string tail = "\r\n" + ping + "\n" + ping;  // the last without an end
  std::string out;
  server_.serve({[&](std::span<char> buffer) -> size_t {
                   if (left > 0) {
                     const size_t count = std::min(left, buffer.size());
                     std::fill_n(buffer.begin(), count, 'x');
                     left -= count;
                     return count;
                   }
                   const size_t count = std::min<size_t>(tail.size(), 7);  // in pieces
                   std::copy_n(tail.begin(), count, buffer.begin());
                   tail.erase(0, count);
                   return count;
                 },
                 [&](std::string_view line) {
                   out += line;
                   return true;
                 }});
  const std::string pong = R"({"jsonrpc":"2.0","id":1,"result":{}})"
                           "\n";
  EXPECT_THAT(out, ::testing::StartsWith(R"({"jsonrpc":"2.0","id":null,"error":{"code":-32600,)"));
  EXPECT_THAT(out, ::testing::EndsWith("\n" + pong + pong));
}

TEST_F(ProtocolTest, AnswersAreUtf8WhateverAFolderIsCalled) {
  if (kWindows) GTEST_SKIP() << "every name there can be written in UTF-8";
  const std::filesystem::path bad = folder_ / "caf\xe9_ombrelux";
  writeFile(bad / "project.json", "{}");
  const Json projects = told("ombrelux_list_projects", {{"folder", toUtf8(folder_.path())}})["projects"];
  ASSERT_EQ(projects.size(), 1u);
  EXPECT_THAT(projects[0]["project"].get<std::string>(), HasSubstr("caf\xef\xbf\xbd_ombrelux"));
}

TEST_F(ProtocolTest, EveryToolHasASchemaThatItsCheckFollows) {
  const Json tools = ask("tools/list")["result"]["tools"];
  ASSERT_EQ(tools.size(), 10u);
  for (const Json& tool : tools) {
    const Json& schema = tool["inputSchema"];
    for (const Json& name : schema.value("required", Json::array())) {
      EXPECT_EQ(refusal(tool["name"], Json::object()), schema["required"][0].get<std::string>() + " is required");
      EXPECT_TRUE(schema["properties"].contains(name));
    }
    EXPECT_THAT(refusal(tool["name"], {{"colour", 1}}), HasSubstr("There is no argument \"colour\"."));
  }
}

TEST_F(ProtocolTest, AWrongValueIsNamedWithWhatIsRight) {
  const auto refusedAs = [&](const char* name, const Json& value) {
    Json given = {{"media", "/nowhere"}};
    given[name] = value;
    return refusal("ombrelux_run", given);
  };
  EXPECT_EQ(refusedAs("iterations", 0), "iterations must be a whole number from 1 up, not 0.");
  for (const Json& value : {Json("many"), Json(1.5), Json(1e30), Json(true), Json{1}}) {
    EXPECT_THAT(refusedAs("iterations", value), HasSubstr("iterations must be a whole number"));
  }
  EXPECT_EQ(refusedAs("technique", "adam"), "technique must be vanilla or mcmc, not \"adam\".");
  EXPECT_EQ(refusedAs("crop_edges", 1), "crop_edges must be a fraction from 0 to 0.375, not 1.");
  EXPECT_EQ(refusedAs("media", Json::array()), "media must be a path or a list of paths, not [].");
  EXPECT_THAT(refusedAs("media", std::string("a\0b", 3)), HasSubstr("media must be"));
  for (const Json& value : {Json(7e3), Json("MCMC"), Json()}) {  // all fine
    EXPECT_EQ(refusedAs(value.is_string() ? "technique" : "iterations", value), "No such file or folder: /nowhere");
  }
}

// What the schema allows, the check lets through, and the value arrives in the member that the argument is named for.
TEST_F(ProtocolTest, SettingsKeepToTheTableFromSchemaToRecord) {
  for (const mcp::Argument& argument : mcp::toolNamed("ombrelux_run").arguments) {
    if (!argument.setting) continue;
    const Setting& setting = *argument.setting;
    const Json schema = mcp::schemaOf({argument})["properties"][argument.name];
    const auto arrives = [&](const Json& value) {
      Settings settings;
      const Json given = mcp::checked({argument}, {{argument.name, value}});
      mcp::applySettings({argument}, given, settings);
      EXPECT_EQ(Json(valueOf(setting, settings)), value) << argument.name;
    };
    if (limitsOf(setting)) {
      arrives(schema["minimum"]);
      arrives(schema["maximum"]);
    } else if (schema.contains("enum")) {
      for (const Json& word : schema["enum"]) arrives(word);
    } else if (schema["type"] == "boolean") {
      arrives(true);
      arrives(false);
    } else {
      arrives("RADIAL");
    }
  }
}

}  // namespace
}  // namespace quor::test
