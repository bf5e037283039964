#include "base/process/output_lines.h"

#include <algorithm>

namespace quor {
namespace {

struct Front {
  size_t bytes;
  bool valid;
};

// The character at the front of a text that is not empty (The Unicode Standard 15.0, table 3-7: well-formed UTF-8).
Front frontCharacter(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  if (lead < 0x80) return {1, true};
  if (lead < 0xc2 || lead > 0xf4) return {1, false};
  const size_t length = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
  unsigned low = lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
  unsigned high = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
  for (size_t i = 1; i < length; ++i) {
    if (i == text.size() || byte(i) < low || byte(i) > high) return {i, false};
    low = 0x80;
    high = 0xbf;
  }
  return {length, true};
}

// The last place at or before `end` where a character begins.
size_t characterStart(std::string_view text, size_t end) {
  for (size_t i = end; i > 0 && i + 4 > end; --i) {
    if ((static_cast<unsigned char>(text[i]) & 0xc0) != 0x80) return i;
  }
  return end;
}

}  // namespace

std::string repairUtf8(std::string_view text) {
  std::string repaired;
  repaired.reserve(text.size());
  while (!text.empty()) {
    const Front front = frontCharacter(text);
    repaired += front.valid ? text.substr(0, front.bytes) : "\uFFFD";
    text.remove_prefix(front.bytes);
  }
  return repaired;
}

void OutputLines::add(std::string_view bytes) {
  while (!bytes.empty()) {
    const size_t end = std::min(bytes.find_first_of("\r\n"), bytes.size());
    pending_ += bytes.substr(0, end);
    while (pending_.size() > kLongestLine) {
      const size_t cut = characterStart(pending_, kLongestLine);
      emit(std::string_view(pending_).substr(0, cut));
      pending_.erase(0, cut);
    }
    if (end == bytes.size()) return;
    finish();
    bytes.remove_prefix(end + 1);
  }
}

void OutputLines::finish() {
  emit(pending_);
  pending_.clear();
}

void OutputLines::emit(std::string_view line) {
  if (!line.empty()) onLine_(repairUtf8(line));
}

}  // namespace quor
