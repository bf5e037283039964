#include "base/files/paths.h"

#include <shlobj.h>

#include <memory>

#include "base/platform/win32/windows_api.h"

namespace quor {

std::optional<std::string> environmentVariable(const char* name) {
  const std::wstring wideName = toWide(name);
  std::wstring value(128, L'\0');
  for (;;) {
    SetLastError(ERROR_SUCCESS);
    const DWORD length = GetEnvironmentVariableW(wideName.c_str(), value.data(), static_cast<DWORD>(value.size()));
    if (length == 0 && GetLastError() == ERROR_ENVVAR_NOT_FOUND) return std::nullopt;
    const bool fits = length < value.size();
    value.resize(length);
    if (fits) return toNarrow(value);
  }
}

void setEnvironmentVariable(const char* name, const char* value) {
  // The C runtime keeps a copy of its own; this call tells both.
  _wputenv_s(toWide(name).c_str(), value != nullptr ? toWide(value).c_str() : L"");
  if (value != nullptr && *value == '\0') SetEnvironmentVariableW(toWide(name).c_str(), L"");
}

std::filesystem::path userDataFolder() {
  PWSTR found = nullptr;
  const HRESULT result = SHGetKnownFolderPath(FOLDERID_RoamingAppData, KF_FLAG_DEFAULT, nullptr, &found);
  const std::unique_ptr<wchar_t, void (*)(void*)> text(found, CoTaskMemFree);
  if (SUCCEEDED(result)) return std::filesystem::path(text.get()) / "Ombrelux";
  std::error_code error;
  const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
  return (error ? std::filesystem::path("C:\\") : temporary) / "Ombrelux";
}

std::filesystem::path executableFolder() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return {};
    if (length < path.size()) {
      path.resize(length);
      return std::filesystem::path(path).parent_path();
    }
    path.resize(path.size() * 2);
  }
}

}  // namespace quor
