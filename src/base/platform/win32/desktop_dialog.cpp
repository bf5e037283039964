// By the system's file dialog, on the calling thread, which gets a COM apartment of its own for it.
#include "base/desktop/desktop_dialog.h"

#include "base/platform/win32/windows_api.h"

// After the system's own header.
#include <shlobj.h>
#include <shobjidl.h>

namespace quor {

namespace fs = std::filesystem;

namespace {

class Apartment {
 public:
  Apartment() : result_(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE)) {}
  ~Apartment() {
    if (SUCCEEDED(result_)) CoUninitialize();
  }
  Apartment(const Apartment&) = delete;
  Apartment& operator=(const Apartment&) = delete;

 private:
  const HRESULT result_;
};

template <typename T>
class ComPointer {
 public:
  ComPointer() = default;
  ~ComPointer() {
    if (pointer_ != nullptr) pointer_->Release();
  }
  ComPointer(const ComPointer&) = delete;
  ComPointer& operator=(const ComPointer&) = delete;

  T* operator->() const { return pointer_; }
  T* get() const { return pointer_; }
  T** put() { return &pointer_; }

 private:
  T* pointer_ = nullptr;
};

// While a dialog is shown its thread does nothing but serve its messages, so a timer of that thread watches for the
// cancellation.
struct Watched {
  IFileDialog* dialog;
  const std::function<bool()>* cancelled;
};
thread_local Watched watched = {};

void CALLBACK closeIfCancelled(HWND, UINT, UINT_PTR, DWORD) {
  if (watched.dialog != nullptr && (*watched.cancelled)()) watched.dialog->Close(HRESULT_FROM_WIN32(ERROR_CANCELLED));
}

HRESULT show(IFileDialog* dialog, const std::function<bool()>& cancelled) {
  constexpr UINT kAskEveryMilliseconds = 50;
  watched = {dialog, &cancelled};
  const UINT_PTR timer = SetTimer(nullptr, 0, kAskEveryMilliseconds, closeIfCancelled);
  const HRESULT result = dialog->Show(nullptr);
  KillTimer(nullptr, timer);
  watched = {};
  return result;
}

void describe(IFileDialog* dialog, const DialogRequest& request) {
  FILEOPENDIALOGOPTIONS options = 0;
  dialog->GetOptions(&options);
  options |= FOS_FORCEFILESYSTEM | FOS_NOCHANGEDIR;
  if (request.kind == DialogKind::OpenFiles) options |= FOS_ALLOWMULTISELECT | FOS_FILEMUSTEXIST;
  if (request.kind == DialogKind::OpenFolder) options |= FOS_PICKFOLDERS;
  if (request.kind == DialogKind::SaveFile) options |= FOS_OVERWRITEPROMPT;
  dialog->SetOptions(options);
  const std::wstring title = toWide(request.title);
  dialog->SetTitle(title.c_str());

  ComPointer<IShellItem> folder;
  if (SUCCEEDED(SHCreateItemFromParsingName(request.startFolder.c_str(), nullptr, IID_PPV_ARGS(folder.put())))) {
    dialog->SetFolder(folder.get());
  }
  if (request.kind == DialogKind::SaveFile) dialog->SetFileName(toWide(request.suggestedName).c_str());
  if (request.extensions.empty() || request.kind == DialogKind::OpenFolder) return;
  std::wstring patterns;
  for (const std::string& extension : request.extensions) {
    patterns += (patterns.empty() ? L"*." : L";*.") + toWide(extension);
  }
  const COMDLG_FILTERSPEC filters[] = {{patterns.c_str(), patterns.c_str()}, {L"All files", L"*.*"}};
  dialog->SetFileTypes(static_cast<UINT>(std::size(filters)), filters);
  if (request.kind == DialogKind::SaveFile) dialog->SetDefaultExtension(toWide(request.extensions.front()).c_str());
}

void append(IShellItem* item, std::vector<fs::path>& paths) {
  PWSTR text = nullptr;
  if (FAILED(item->GetDisplayName(SIGDN_FILESYSPATH, &text))) return;
  paths.emplace_back(text);
  CoTaskMemFree(text);
}

std::vector<fs::path> results(IFileDialog* dialog, DialogKind kind) {
  std::vector<fs::path> paths;
  if (kind != DialogKind::OpenFiles) {
    ComPointer<IShellItem> item;
    if (SUCCEEDED(dialog->GetResult(item.put()))) append(item.get(), paths);
    return paths;
  }
  ComPointer<IFileOpenDialog> open;
  ComPointer<IShellItemArray> items;
  DWORD count = 0;
  if (FAILED(dialog->QueryInterface(IID_PPV_ARGS(open.put())))) return paths;
  if (FAILED(open->GetResults(items.put())) || FAILED(items->GetCount(&count))) return paths;
  for (DWORD i = 0; i < count; ++i) {
    ComPointer<IShellItem> item;
    if (SUCCEEDED(items->GetItemAt(i, item.put()))) append(item.get(), paths);
  }
  return paths;
}

}  // namespace

std::optional<std::vector<fs::path>> askDesktop(const DialogRequest& request, const std::function<bool()>& cancelled) {
  const Apartment apartment;
  ComPointer<IFileDialog> dialog;
  const CLSID& made = request.kind == DialogKind::SaveFile ? CLSID_FileSaveDialog : CLSID_FileOpenDialog;
  if (FAILED(CoCreateInstance(made, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(dialog.put())))) return std::nullopt;
  describe(dialog.get(), request);
  const HRESULT result = show(dialog.get(), cancelled);
  if (result == HRESULT_FROM_WIN32(ERROR_CANCELLED)) return std::vector<fs::path>();
  if (FAILED(result)) return std::nullopt;
  return results(dialog.get(), request.kind);
}

}  // namespace quor
