#include "base/desktop/registry.h"

#include "base/platform/win32/windows_api.h"

namespace quor {
namespace {

void appendValueNames(HKEY root, const wchar_t* path, std::vector<std::string>& names) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(root, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return;
  for (DWORD index = 0;; ++index) {
    wchar_t name[1024];
    DWORD length = static_cast<DWORD>(std::size(name));
    const LSTATUS result = RegEnumValueW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (result == ERROR_MORE_DATA) continue;  // a name too long for a path
    if (result != ERROR_SUCCESS) break;
    names.push_back(toNarrow({name, length}));
  }
  RegCloseKey(key);
}

}  // namespace

std::vector<std::string> registryValueNames(const std::string& key) {
  std::vector<std::string> names;
  for (const HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) appendValueNames(root, toWide(key).c_str(), names);
  return names;
}

}  // namespace quor
