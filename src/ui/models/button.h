// A button as a model knows it.
#pragma once

#include <string>

namespace quor::ui {

struct Button {
  std::string label;
  std::string hint;  // what it does, or why it cannot be pressed and what to do about that
  bool enabled = true;
};

}  // namespace quor::ui
