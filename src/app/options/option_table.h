// Every option of the command line: those of the program itself, and those that overwrite a setting, which come from
// the table of settings.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/options/options.h"

namespace quor {

struct OptionSpec {
  std::string name;   // with its dashes
  std::string value;  // placeholder of its value; empty for a flag
  std::string help;   // a line feed continues on a line of its own
  Places places = 0;
  const Setting* setting = nullptr;
  std::function<void(Options&, const std::string& value)> apply;
};

struct OptionGroup {
  const char* title;
  std::vector<OptionSpec> options;
};

// In the order of the usage text.
const std::vector<OptionGroup>& optionGroups();

}  // namespace quor
