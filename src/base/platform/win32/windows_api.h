// The system's headers, and the few things that every file of this folder needs of it.
#pragma once

// The first goes before the others.
// clang-format off
#include <windows.h>
#include <dbghelp.h>
#include <psapi.h>
#include <shellapi.h>
// clang-format on

#include <string>
#include <utility>

namespace quor {

class Handle {
 public:
  Handle() = default;
  explicit Handle(HANDLE handle) : handle_(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
  ~Handle() { reset(); }
  Handle(Handle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }

  HANDLE get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }
  void reset() {
    if (handle_ != nullptr) CloseHandle(std::exchange(handle_, nullptr));
  }

 private:
  HANDLE handle_ = nullptr;
};

std::wstring toWide(std::string_view utf8);
std::string toNarrow(std::wstring_view utf16);
// The system's text for an error number, without its final full stop.
std::string systemMessage(DWORD error);

}  // namespace quor
