// Something that the user is told until it is dismissed.
#pragma once

#include <string>
#include <vector>

namespace quor::ui {

struct Notice {
  std::string title;
  std::vector<std::string> lines;
  bool isError = false;

  bool operator==(const Notice&) const = default;
};

}  // namespace quor::ui
