#include "ui/fonts.h"

#include <imgui.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>

#include "base/files/file_bytes.h"
#include "base/files/paths.h"
#include "base/text/text.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

constexpr float kTextHeight = 16;  // pixels at scale 1
// Every device has textures of 4096 * 4096; a fifth of it is lost between the signs.
constexpr double kTexturePixels = 4096.0 * 4096.0 * 0.8;
constexpr int kMaxFolders = 2000;
constexpr int64_t kLargestFile = 64 << 20;

// In the order of preference. Each list is of fonts that can stand for one another.
constexpr std::array kTextFonts = {"segoeui.ttf", "dejavusans.ttf", "notosans-regular.ttf",
                                   "liberationsans-regular.ttf", "freesans.ttf"};
constexpr std::array kHanFonts = {"notosanscjk-regular.ttc",
                                  "notosanscjksc-regular.otf",
                                  "notosanscjkjp-regular.otf",
                                  "msyh.ttc",
                                  "wqy-microhei.ttc",
                                  "wqy-zenhei.ttc",
                                  "droidsansfallbackfull.ttf",
                                  "droidsansfallback.ttf",
                                  "msgothic.ttc"};
constexpr std::array kHangulFonts = {"notosanscjk-regular.ttc", "malgun.ttf", "nanumgothic.ttf",
                                     "droidsansfallbackfull.ttf", "unbatang.ttf"};

constexpr ImWchar kTextRanges[] = {0x0020, 0x024F,  // Latin
                                   0x02B0, 0x052F,  // accents that stand alone or combine, Greek, Cyrillic
                                   0x1E00, 0x1FFF,  // Vietnamese, Greek with accents
                                   0x2010, 0x209F, 0x20A0, 0x20BF,  // dashes, quotes, dots, small figures, currencies
                                   0x2100, 0x22FF,                  // arrows, mathematics
                                   0x25A0, 0x26FF, 0x2700, 0x27BF,  // shapes and symbols
                                   0xFFFD, 0xFFFD, 0};
constexpr ImWchar kKanaRanges[] = {0x3000, 0x30FF, 0x31F0, 0x31FF, 0xFF00, 0xFFEF, 0};

const ImWchar* rangesOf(Script script, ImFontAtlas& atlas) {
  switch (script) {
    case Script::Text:
      return kTextRanges;
    case Script::Kana:
      return kKanaRanges;
    case Script::Chinese:
      return atlas.GetGlyphRangesChineseSimplifiedCommon();
    case Script::Japanese:
      return atlas.GetGlyphRangesJapanese();
    case Script::Korean:
      break;
  }
  return atlas.GetGlyphRangesKorean();
}

// How many signs a script adds to those before it, roughly.
double signsOf(Script script) {
  switch (script) {
    case Script::Text:
      return 1500;  // narrower than they are high, but small ones are drawn twice as wide
    case Script::Kana:
      return 450;
    case Script::Chinese:
      return 2500;
    case Script::Japanese:
      return 1500;
    case Script::Korean:
      break;
  }
  return 11200;
}

// The fonts that are there, by their names in lower case; of several the first.
std::map<std::string, fs::path> findFiles(const std::vector<fs::path>& folders) {
  std::map<std::string, fs::path> found;
  int visited = 0;
  for (const fs::path& folder : folders) {
    std::error_code error;
    const auto options = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator it(folder, options, error), end; !error && it != end; it.increment(error)) {
      std::error_code ignored;
      if (it->is_directory(ignored) && ++visited > kMaxFolders) return found;
      const std::string extension = toLower(toUtf8(it->path().extension()));
      const bool isFont = extension == ".ttf" || extension == ".ttc" || extension == ".otf";
      if (isFont) found.emplace(toLower(toUtf8(it->path().filename())), it->path());
    }
  }
  return found;
}

template <size_t N>
std::vector<fs::path> among(const std::map<std::string, fs::path>& files, const std::array<const char*, N>& names) {
  std::vector<fs::path> paths;
  for (const char* name : names) {
    if (const auto file = files.find(name); file != files.end()) paths.push_back(file->second);
  }
  return paths;
}

void addScript(std::vector<FontFile>& fonts, const fs::path& path, Script script) {
  const auto file = std::ranges::find(fonts, path, &FontFile::path);
  if (file == fonts.end()) {
    fonts.push_back({path, {script}});
  } else {
    file->scripts.push_back(script);
  }
}

// The library aborts on files that it cannot read; such a file is passed over here.
bool isFontData(const std::vector<uint8_t>& bytes) {
  if (bytes.size() < 1024) return false;
  const std::string kind(bytes.begin(), bytes.begin() + 4);
  return kind == std::string("\0\1\0\0", 4) || kind == "true" || kind == "OTTO" || kind == "ttcf";
}

bool addFont(const FontFile& file, float pixels, bool merge, ImFontAtlas& atlas, ImVector<ImWchar>& ranges) {
  std::vector<uint8_t> bytes;
  try {
    bytes = readFileBytes(file.path, kLargestFile);
  } catch (const std::exception&) {
  }
  if (!isFontData(bytes)) return false;
  ImFontGlyphRangesBuilder builder;
  for (const Script script : file.scripts) builder.AddRanges(rangesOf(script, atlas));
  builder.BuildRanges(&ranges);
  ImFontConfig config;
  config.MergeMode = merge;
  config.OversampleH = pixels < 20 && !merge ? 2 : 1;
  config.PixelSnapH = merge;
  void* copy = ImGui::MemAlloc(bytes.size());  // the atlas frees it
  std::memcpy(copy, bytes.data(), bytes.size());
  return atlas.AddFontFromMemoryTTF(copy, static_cast<int>(bytes.size()), pixels, &config, ranges.Data) != nullptr;
}

}  // namespace

std::vector<fs::path> fontFolders() {
  std::vector<fs::path> folders;
  const auto add = [&](const char* variable, const char* below) {
    const fs::path parent = fromUtf8(environmentVariable(variable).value_or(""));
    if (parent.is_absolute()) folders.push_back(parent / below);
  };
  add("WINDIR", "Fonts");
  add("LOCALAPPDATA", "Microsoft/Windows/Fonts");
  add("XDG_DATA_HOME", "fonts");
  add("HOME", ".local/share/fonts");
  for (const char* folder : {"/usr/share/fonts", "/usr/local/share/fonts"}) folders.emplace_back(folder);
  return folders;
}

std::vector<FontFile> chooseFonts(const std::vector<fs::path>& folders, float pixels) {
  const std::map<std::string, fs::path> files = findFiles(folders);
  std::vector<fs::path> text = among(files, kTextFonts);
  if (text.empty()) return {};
  std::vector<FontFile> fonts;
  constexpr size_t kTextFiles = 2;  // the second fills the first's gaps
  for (size_t i = 0; i < std::min(text.size(), kTextFiles); ++i) addScript(fonts, text[i], Script::Text);

  double left = kTexturePixels - signsOf(Script::Text) * pixels * pixels;
  const auto addFirst = [&](const std::vector<fs::path>& candidates, Script script) {
    const double taken = signsOf(script) * (pixels + 1) * (pixels + 1);
    if (candidates.empty() || taken > left) return;
    left -= taken;
    addScript(fonts, candidates.front(), script);
  };
  const std::vector<fs::path> han = among(files, kHanFonts);
  for (const Script script : {Script::Kana, Script::Chinese, Script::Japanese}) addFirst(han, script);
  addFirst(among(files, kHangulFonts), Script::Korean);
  return fonts;
}

float fontPixels(float scale) {
  return std::round(kTextHeight * std::clamp(scale, 0.5F, 6.0F));
}

void loadFonts(float scale) {
  ImFontAtlas& atlas = *ImGui::GetIO().Fonts;
  atlas.Clear();
  const float pixels = fontPixels(scale);
  const auto addBuiltIn = [&] {
    ImFontConfig config;
    config.SizePixels = pixels;
    atlas.AddFontDefault(&config);
  };
  const std::vector<FontFile> fonts = chooseFonts(fontFolders(), pixels);
  std::vector<ImVector<ImWchar>> ranges(fonts.size());  // which must last until the atlas is built
  bool any = false;
  for (size_t i = 0; i < fonts.size(); ++i) {
    const bool isText = fonts[i].scripts.front() == Script::Text;
    if (!any && !isText) {
      addBuiltIn();
      any = true;
    }
    any |= addFont(fonts[i], pixels, any, atlas, ranges[i]);
  }
  if (any && atlas.Build()) return;
  atlas.Clear();
  addBuiltIn();
  atlas.Build();
}

}  // namespace quor::ui
