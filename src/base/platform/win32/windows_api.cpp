#include "base/platform/win32/windows_api.h"

namespace quor {

// Invalid UTF-8 and unpaired surrogates become U+FFFD.
std::wstring toWide(std::string_view utf8) {
  const int length = static_cast<int>(utf8.size());
  std::wstring wide(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, wide.data(), static_cast<int>(wide.size()));
  return wide;
}

std::string toNarrow(std::wstring_view utf16) {
  const int length = static_cast<int>(utf16.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, utf16.data(), length, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, utf16.data(), length, narrow.data(), size, nullptr, nullptr);
  return narrow;
}

std::string systemMessage(DWORD error) {
  wchar_t buffer[512];
  const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
                                      buffer, static_cast<DWORD>(std::size(buffer)), nullptr);
  std::wstring_view text(buffer, length);
  while (!text.empty() && (text.back() <= L' ' || text.back() == L'.')) text.remove_suffix(1);
  return text.empty() ? "error " + std::to_string(error) : toNarrow(text);
}

}  // namespace quor
