#include "mcp/arguments.h"

#include <algorithm>
#include <stdexcept>

#include "base/files/paths.h"
#include "base/text/text.h"

namespace quor::mcp {

namespace {

const char* schemaType(ArgumentType type) {
  switch (type) {
    case ArgumentType::Integer:
      return "integer";
    case ArgumentType::Number:
      return "number";
    case ArgumentType::Boolean:
      return "boolean";
    case ArgumentType::Paths:
      return "array";
    default:
      return "string";
  }
}

Document number(double value, bool whole) {
  if (whole) return static_cast<int64_t>(value);
  return value;
}

Document schemaOf(const Argument& argument) {
  Document schema;
  if (argument.type == ArgumentType::Paths) {
    schema["type"] = {"string", "array"};
    schema["items"] = {{"type", "string"}};
    schema["minItems"] = 1;
  } else {
    schema["type"] = schemaType(argument.type);
  }
  schema["description"] = argument.description;
  if (!argument.choices.empty()) schema["enum"] = argument.choices;
  const auto limits = argument.setting ? limitsOf(*argument.setting) : std::nullopt;
  if (limits) {
    schema["minimum"] = number(limits->least, limits->whole);
    schema["maximum"] = number(limits->most, limits->whole);
  }
  return schema;
}

std::string choiceText(const Argument& argument) {
  std::string text;
  for (size_t i = 0; i < argument.choices.size(); ++i) {
    text += i == 0 ? "" : i + 1 == argument.choices.size() ? " or " : ", ";
    text += argument.choices[i];
  }
  return text;
}

std::string wantedOf(const Argument& argument) {
  if (argument.setting) return wanted(*argument.setting);
  switch (argument.type) {
    case ArgumentType::Boolean:
      return "true or false";
    case ArgumentType::Paths:
      return "a path or a list of paths";
    case ArgumentType::Choice:
      return choiceText(argument);
    case ArgumentType::Path:
      return "a path";
    default:
      return "a text";
  }
}

// A path ends for the system at a NUL, so that another one than the one looked at would be opened.
bool isText(const Json& value) {
  return value.is_string() && !value.get_ref<const std::string&>().empty() &&
         value.get_ref<const std::string&>().find('\0') == std::string::npos;
}

bool isPath(Json& value) {
  if (!isText(value)) return false;
  const auto home = environmentVariable("HOME");
  auto& path = value.get_ref<std::string&>();
  if (home && (path == "~" || path.starts_with("~/"))) path.replace(0, 1, *home);
  return true;
}

bool fits(const Argument& argument, Json& value) {
  switch (argument.type) {
    case ArgumentType::Integer:
    case ArgumentType::Number:
      return value.is_number() && isWithinLimits(*argument.setting, value.get<double>());
    case ArgumentType::Boolean:
      return value.is_boolean();
    case ArgumentType::Text:
      return isText(value);
    case ArgumentType::Path:
      return isPath(value);
    case ArgumentType::Paths:
      if (value.is_string()) value = Json::array({value});
      return value.is_array() && !value.empty() && std::ranges::all_of(value, isPath);
    case ArgumentType::Choice:
      if (!value.is_string()) return false;
      value = toLower(value.get<std::string>());
      return std::ranges::any_of(argument.choices, [&](const char* choice) { return value == choice; });
  }
  return false;
}

std::string shown(const Json& value) {
  constexpr size_t kMax = 60;
  const std::string text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
  return text.size() > kMax ? text.substr(0, kMax) + "..." : text;
}

void refuseUnknown(const Arguments& arguments, const Json& given) {
  for (const auto& entry : given.items()) {
    const std::string& name = entry.key();
    if (std::ranges::any_of(arguments, [&](const Argument& a) { return a.name == name; })) continue;
    std::string known;
    for (const Argument& argument : arguments) known += (known.empty() ? "" : ", ") + std::string(argument.name);
    throw std::runtime_error("There is no argument " + shown(name) + ". " +
                             (known.empty() ? "This tool takes none." : "This tool takes " + known + "."));
  }
}

}  // namespace

Arguments joined(std::initializer_list<Arguments> lists) {
  Arguments all;
  for (const Arguments& list : lists) all.insert(all.end(), list.begin(), list.end());
  return all;
}

Document schemaOf(const Arguments& arguments) {
  Document schema = {{"type", "object"}};
  Document& properties = schema["properties"] = Document::object();
  Document required = Document::array();
  for (const Argument& argument : arguments) {
    properties[argument.name] = schemaOf(argument);
    if (argument.required) required.push_back(argument.name);
  }
  if (!required.empty()) schema["required"] = required;
  schema["additionalProperties"] = false;
  return schema;
}

Json checked(const Arguments& arguments, const Json& given) {
  refuseUnknown(arguments, given);
  Json values = Json::object();
  for (const Argument& argument : arguments) {
    const auto found = given.find(argument.name);
    if (found == given.end() || found->is_null()) {
      if (argument.required) throw std::runtime_error(std::string(argument.name) + " is required");
      continue;
    }
    Json value = *found;
    if (!fits(argument, value)) {
      throw std::runtime_error(std::string(argument.name) + " must be " + wantedOf(argument) + ", not " +
                               shown(*found) + ".");
    }
    values[argument.name] = std::move(value);
  }
  return values;
}

}  // namespace quor::mcp
