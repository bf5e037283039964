#include "base/log/log_tail.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>

namespace quor {
namespace {

bool continuesCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

}  // namespace

void LogTail::add(std::string_view line) noexcept {
  Line& slot = lines_[count_.fetch_add(1, std::memory_order_acq_rel) % kLines];
  slot.length.store(0, std::memory_order_release);
  size_t length = line.size();
  if (length > kLongestLine) {
    length = kLongestLine - 1;
    while (length > 0 && continuesCharacter(line[length])) --length;
  }
  std::memcpy(slot.text, line.data(), length);
  if (length < line.size()) slot.text[length++] = '\n';
  slot.length.store(length, std::memory_order_release);
}

void LogTail::addCurrentException() noexcept {
  if (!std::current_exception()) return;
  try {
    throw;
  } catch (const std::exception& error) {
    char text[kLongestLine];
    std::snprintf(text, sizeof text, "escaped exception: %.900s\n", error.what());
    add(text);
  } catch (...) {
  }
}

std::string_view LogTail::line(uint64_t number) const noexcept {
  const Line& slot = lines_[number % kLines];
  return {slot.text, std::min(slot.length.load(std::memory_order_acquire), kLongestLine)};
}

}  // namespace quor
