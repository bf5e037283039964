#include "base/text/text.h"

#include <cstdarg>
#include <cstdio>

namespace quor {

std::string formatText(const char* format, ...) {
  va_list measure, print;
  va_start(measure, format);
  va_copy(print, measure);
  const int length = std::vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, print);
  va_end(print);
  return text;
}

std::string toLower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

std::string withoutControls(std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
  }
  return text;
}

}  // namespace quor
