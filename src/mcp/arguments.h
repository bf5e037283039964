// The arguments of a tool, each described once: the schema that an assistant reads and the check of what it sends come
// from the same line. Those that overwrite a project's setting come from the table of settings.
#pragma once

#include <string>
#include <vector>

#include "mcp/json_rpc.h"
#include "settings/settings_table.h"

namespace quor::mcp {

// A path may begin with "~/"; checked() replaces it by the user's folder.
enum class ArgumentType { Text, Path, Paths, Integer, Number, Boolean, Choice };

struct Argument {
  const char* name;
  ArgumentType type;
  std::string description;
  bool required = false;
  std::vector<const char*> choices = {};  // lower case; letter case does not count in what is sent
  const Setting* setting = nullptr;       // that it overwrites; none: the tool itself looks at it. Numbers have one
};

using Arguments = std::vector<Argument>;

// The settings that a tool may overwrite, by the place on the command line that does the same work.
Arguments settingArguments(Places place);
Arguments joined(std::initializer_list<Arguments> lists);

// JSON Schema of an object with these members.
Document schemaOf(const Arguments& arguments);

// Throws std::runtime_error with a sentence for the first value that is missing, unknown or not as described. A null
// stands for an argument that is not given. Choices come back in lower case.
Json checked(const Arguments& arguments, const Json& given);

// Overwrites the settings for which there is a value.
void applySettings(const Arguments& arguments, const Json& given, Settings& settings);

}  // namespace quor::mcp
