#include "base/desktop/message_box.h"

#include "base/platform/win32/windows_api.h"

namespace quor {

bool showMessageBox(const std::string& title, const std::string& text, const std::function<bool()>&) {
  return MessageBoxW(nullptr, toWide(text).c_str(), toWide(title).c_str(), MB_OK | MB_ICONERROR | MB_SETFOREGROUND) !=
         0;
}

}  // namespace quor
