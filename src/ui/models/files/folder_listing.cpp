#include "ui/models/files/folder_listing.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "base/files/paths.h"
#include "base/text/text.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Takes the digits off the front and returns them without leading zeros.
std::string_view takeNumber(std::string_view& text) {
  size_t length = 0;
  while (length < text.size() && isDigit(text[length])) ++length;
  std::string_view number = text.substr(0, length);
  text.remove_prefix(length);
  number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
  return number;
}

// Negative, zero or positive.
int naturalOrder(std::string_view a, std::string_view b) {
  while (!a.empty() && !b.empty()) {
    if (isDigit(a.front()) && isDigit(b.front())) {
      const std::string_view x = takeNumber(a), y = takeNumber(b);
      if (x.size() != y.size()) return x.size() < y.size() ? -1 : 1;
      if (const int order = x.compare(y); order != 0) return order;
      continue;
    }
    const auto x = static_cast<unsigned char>(lower(a.front())), y = static_cast<unsigned char>(lower(b.front()));
    if (x != y) return x < y ? -1 : 1;
    a.remove_prefix(1);
    b.remove_prefix(1);
  }
  return a.empty() && b.empty() ? 0 : a.empty() ? -1 : 1;
}

void appendFoldersIn(const fs::path& parent, std::vector<Place>& places) {
  std::error_code error;
  for (fs::directory_iterator entry(parent, error), end; !error && entry != end; entry.increment(error)) {
    std::error_code ignored;
    if (!entry->is_directory(ignored) || fs::is_empty(entry->path(), ignored)) continue;
    places.push_back({toUtf8(entry->path().filename()), entry->path()});
  }
}

}  // namespace

bool naturalLess(std::string_view a, std::string_view b) {
  const int order = naturalOrder(a, b);
  return order != 0 ? order < 0 : a < b;
}

std::vector<FolderEntry> listFolder(const fs::path& folder) {
  std::error_code error;
  std::vector<FolderEntry> entries;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    std::error_code ignored;
    FolderEntry entry{toUtf8(it->path().filename()), it->is_directory(ignored)};
    entry.isHidden = entry.name.starts_with('.') || entry.name.starts_with('$');
    if (!entry.isFolder && !it->is_regular_file(ignored)) continue;
    if (!entry.isFolder) {
      entry.bytes = it->file_size(ignored);
      if (ignored) entry.bytes = 0;
    }
    entries.push_back(std::move(entry));
  }
  if (error) throw std::runtime_error("Cannot open " + toUtf8(folder) + ": " + error.message());
  std::ranges::sort(entries, [](const FolderEntry& a, const FolderEntry& b) {
    return a.isFolder != b.isFolder ? a.isFolder : naturalLess(a.name, b.name);
  });
  return entries;
}

fs::path homeFolder() {
  for (const char* variable : {"HOME", "USERPROFILE"}) {
    fs::path home = fromUtf8(environmentVariable(variable).value_or(""));
    if (home.is_absolute()) return home;
  }
  return {};
}

std::vector<Place> listPlaces() {
  std::vector<Place> places;
  if (const fs::path home = homeFolder(); !home.empty()) places.push_back({"Home", home});
  if (const fs::path root = "/"; root.is_absolute()) places.push_back({"Computer", root});
  std::error_code ignored;
  for (char letter = 'C'; letter <= 'Z'; ++letter) {
    const std::string name = std::string(1, letter) + ":\\";
    const fs::path drive = fromUtf8(name);  // absolute only where there are drives
    if (drive.is_absolute() && fs::is_directory(drive, ignored)) places.push_back({name, drive});
  }
  const std::string user = environmentVariable("USER").value_or("");
  if (!user.empty()) {
    appendFoldersIn(fs::path("/media") / fromUtf8(user), places);
    appendFoldersIn(fs::path("/run/media") / fromUtf8(user), places);
  }
  appendFoldersIn("/mnt", places);
  return places;
}

bool hasExtension(const fs::path& path, const std::vector<std::string>& extensions) {
  const std::string extension = toLower(toUtf8(path.extension()));
  return extensions.empty() ||
         std::ranges::any_of(extensions, [&](const std::string& e) { return extension == "." + e; });
}

}  // namespace quor::ui
