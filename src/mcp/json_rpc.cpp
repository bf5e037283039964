#include "mcp/json_rpc.h"

#include <algorithm>

#include "base/failures.h"

namespace quor::mcp {

namespace {

// Far above any message of the protocol; each level takes stack when a document is written.
constexpr size_t kDeepest = 64;
constexpr size_t kMaxInList = 50;

Document errorDocument(const Json& id, int code, const std::string& message) {
  Document document;
  document["jsonrpc"] = "2.0";
  document["id"] = id;
  document["error"] = {{"code", code}, {"message", message}};
  return document;
}

bool isId(const Json& value) {
  return value.is_string() || value.is_number();
}

Json idOf(const Json& message) {
  const bool has = message.is_object() && message.contains("id") && isId(message["id"]);
  return has ? message["id"] : Json();
}

bool isRequest(const Json& message) {
  return message.is_object() && message.value("jsonrpc", Json()) == "2.0" &&
         message.value("method", Json()).is_string() && (!message.contains("id") || isId(message["id"]));
}

// Ignores brackets in strings. In invalid JSON the count may be wrong, but only after the first error.
bool tooDeep(std::string_view line) {
  size_t depth = 0;
  bool inText = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (inText) {
      if (c == '\\') ++i;
      if (c == '"') inText = false;
    } else if (c == '"') {
      inText = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kDeepest) return true;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return false;
}

Document carryOut(const Json& request, const CallMethod& call) {
  const Json params = request.value("params", Json());
  if (!params.is_null() && !params.is_object()) throw RpcError(kInvalidParams, "params must be an object");
  Document document;
  document["jsonrpc"] = "2.0";
  document["id"] = request["id"];
  document["result"] = call(request["method"].get<std::string>(), params);
  return document;
}

std::optional<Document> answerMessage(const Json& message, const CallMethod& call) {
  if (!isRequest(message)) return errorDocument(idOf(message), kInvalidRequest, "Invalid request");
  if (!message.contains("id")) return std::nullopt;  // a notification
  try {
    return carryOut(message, call);
  } catch (const RpcError& error) {
    return errorDocument(message["id"], error.code, error.what());
  } catch (const std::exception& error) {
    return errorDocument(message["id"], kInternalError, failureText(error));
  }
}

std::optional<Document> answerList(const Json& list, const CallMethod& call) {
  if (list.empty() || list.size() > kMaxInList) return errorDocument({}, kInvalidRequest, "Invalid request");
  Document answers = Document::array();
  for (const Json& message : list) {
    if (std::optional<Document> answer = answerMessage(message, call)) answers.push_back(std::move(*answer));
  }
  return answers.empty() ? std::nullopt : std::optional(std::move(answers));
}

}  // namespace

std::string toLine(const Document& document) {
  return document.dump(-1, ' ', false, Document::error_handler_t::replace);
}

std::string errorLine(int code, const std::string& message) {
  return toLine(errorDocument({}, code, message));
}

std::optional<std::string> answerLine(std::string_view line, const CallMethod& call, bool takesLists) {
  if (line.find_first_not_of(" \t\r") == std::string_view::npos) return std::nullopt;
  if (tooDeep(line)) return errorLine(kInvalidRequest, "The message is nested too deeply.");
  const Json message = Json::parse(line, nullptr, false);
  if (message.is_discarded()) return errorLine(kParseError, "Parse error");
  const bool list = message.is_array() && takesLists;
  const std::optional<Document> answer = list ? answerList(message, call) : answerMessage(message, call);
  return answer ? std::optional(toLine(*answer)) : std::nullopt;
}

}  // namespace quor::mcp
