// JSON-RPC 2.0 (https://www.jsonrpc.org/specification): parses a line and makes the line that answers it. Lines come
// from another program and may hold anything.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace quor::mcp {

using Json = nlohmann::json;              // received: keys are found quickly in an object of any size
using Document = nlohmann::ordered_json;  // sent, in the order in which it is written

inline constexpr int kParseError = -32700;
inline constexpr int kInvalidRequest = -32600;
inline constexpr int kMethodNotFound = -32601;
inline constexpr int kInvalidParams = -32602;
inline constexpr int kInternalError = -32603;
inline constexpr int kResourceNotFound = -32002;  // of the Model Context Protocol

class RpcError : public std::runtime_error {
 public:
  RpcError(int code, const std::string& message) : std::runtime_error(message), code(code) {}
  const int code;
};

// One line without its end; always valid UTF-8.
std::string toLine(const Document& document);
std::string errorLine(int code, const std::string& message);  // for a message whose id is not known

// Carries out a request; `params` is an object or null. Throws RpcError; any other exception is an internal error.
using CallMethod = std::function<Document(const std::string& method, const Json& params)>;

// The answer to a line; nothing for notifications and blank lines. With `takesLists`, a list of messages is answered
// with the list of their answers.
std::optional<std::string> answerLine(std::string_view line, const CallMethod& call, bool takesLists);

}  // namespace quor::mcp
