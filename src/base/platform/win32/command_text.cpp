#include "base/platform/win32/command_text.h"

#include <map>
#include <memory>

#include "base/files/paths.h"
#include "base/platform/win32/windows_api.h"

namespace quor {
namespace {

std::wstring quoted(const std::wstring& argument) {
  if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) return argument;
  std::wstring text = L"\"";
  size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'"') text.append(backslashes + 1, L'\\');  // those before a quote count half
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    text += c;
  }
  return text.append(backslashes, L'\\') + L"\"";
}

struct NameOrder {
  bool operator()(const std::wstring& a, const std::wstring& b) const {
    return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()), TRUE) ==
           CSTR_LESS_THAN;
  }
};

}  // namespace

std::wstring commandLine(const ChildCommand& command) {
  // No backslash escapes anything in the program's name.
  std::wstring text = L"\"" + command.program.wstring() + L"\"";
  for (const std::string& argument : command.arguments) text += L" " + quoted(toWide(argument));
  return text;
}

std::wstring environmentBlock(const ChildCommand& command) {
  std::map<std::wstring, std::wstring, NameOrder> variables;
  const std::unique_ptr<wchar_t, BOOL (*)(wchar_t*)> own(GetEnvironmentStringsW(), FreeEnvironmentStringsW);
  for (const wchar_t* entry = own.get(); entry != nullptr && *entry != L'\0';) {
    const std::wstring_view text(entry);
    entry += text.size() + 1;
    // The first character may be an equals sign: the drives' current folders are kept so.
    const size_t name = text.find(L'=', 1);
    if (name != std::wstring_view::npos) variables[std::wstring(text.substr(0, name))] = text.substr(name + 1);
  }
  for (const auto& [name, value] : command.environment) variables[toWide(name)] = toWide(value);

  std::wstring block;
  for (const auto& [name, value] : variables) (block += name + L"=" + value) += L'\0';
  return block + L'\0';
}

}  // namespace quor
