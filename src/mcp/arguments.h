// The arguments of a tool, each described once: the schema that an assistant reads, the check of what it sends, and the
// project setting that an argument overwrites all come from the same line.
#pragma once

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "mcp/json_rpc.h"
#include "project/project.h"

namespace quor::mcp {

// A path may begin with "~/"; checked() replaces it by the user's folder.
enum class ArgumentType { Text, Path, Paths, Integer, Number, Boolean, Choice };

struct Argument {
  const char* name;
  ArgumentType type;
  std::string description;
  bool required = false;
  double least = 0;
  double most = std::numeric_limits<int>::max();
  bool open = false;                                      // `least` (Integer, Number) is itself too small
  bool openAbove = false;                                 // `most` is itself too large
  std::vector<const char*> choices = {};                  // lower case; letter case does not count in what is sent
  std::function<void(Project&, const Json&)> apply = {};  // absent: the tool itself looks at it
};

using Arguments = std::vector<Argument>;

// Those of a tool that makes frames, solves cameras, trains.
Arguments frameSettings();
Arguments cameraSettings();
Arguments trainingSettings();
Arguments joined(std::initializer_list<Arguments> lists);

// JSON Schema of an object with these members.
Document schemaOf(const Arguments& arguments);

// Throws std::runtime_error with a sentence for the first value that is missing, unknown or not as described. A null
// stands for an argument that is not given. Choices come back in lower case.
Json checked(const Arguments& arguments, const Json& given);

// Overwrites the settings for which there is a value.
void applySettings(const Arguments& arguments, const Json& given, Project& project);

}  // namespace quor::mcp
