// Something that the user is told until it is dismissed.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quor::ui {

struct Notice {
  std::string title = {};
  std::vector<std::string> lines = {};
  bool isError = false;
  std::filesystem::path folder = {};  // one to look into, with a button that opens it

  bool operator==(const Notice&) const = default;
};

}  // namespace quor::ui
