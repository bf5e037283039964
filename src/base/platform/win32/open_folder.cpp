#include "base/desktop/open_folder.h"

#include "base/platform/win32/windows_api.h"

namespace quor {

bool openFolder(const std::filesystem::path& folder) {
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error)) return false;
  SHELLEXECUTEINFOW call = {};
  call.cbSize = sizeof call;
  call.fMask = SEE_MASK_ASYNCOK | SEE_MASK_FLAG_NO_UI;
  call.lpVerb = L"explore";
  call.lpFile = folder.c_str();
  call.nShow = SW_SHOWNORMAL;
  return ShellExecuteExW(&call) != FALSE;
}

}  // namespace quor
