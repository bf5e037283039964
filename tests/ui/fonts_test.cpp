#include "ui/fonts.h"

#include <gtest/gtest.h>
#include <imgui.h>

#include <algorithm>

#include "support/scoped_environment.h"
#include "support/temp_folder.h"

namespace quor::ui {
namespace {

using test::ScopedEnvironment;
using test::TempFolder;
using test::writeFile;

class LoadedFonts : public testing::Test {
 protected:
  LoadedFonts() { ImGui::CreateContext(); }
  ~LoadedFonts() override { ImGui::DestroyContext(); }
  static ImFontAtlas& atlas() { return *ImGui::GetIO().Fonts; }
};

TEST_F(LoadedFonts, TakeTheBuiltInOneInThePlaceOfDamagedFiles) {
  const TempFolder folder;
  const ScopedEnvironment windows("WINDIR", toUtf8(folder.path()).c_str());
  writeFile(folder / "Fonts/segoeui.ttf", std::string(5000, 'x'));
  writeFile(folder / "Fonts/DejaVuSans.ttf", "");
  writeFile(folder / "Fonts/msyh.ttc", std::string("\0\1\0\0", 4));
  loadFonts(1);
  ASSERT_TRUE(atlas().IsBuilt());
  EXPECT_EQ(atlas().Fonts.size(), 1);
  EXPECT_EQ(atlas().Fonts[0]->FontSize, fontPixels(1));
  EXPECT_NE(atlas().Fonts[0]->FindGlyphNoFallback('A'), nullptr);
}

TEST_F(LoadedFonts, ShowWhatPathsAndPanelsAreWrittenWith) {
  for (const float scale : {1.0F, 2.0F, 4.0F}) {
    const auto fonts = chooseFonts(fontFolders(), fontPixels(scale));
    if (fonts.empty()) GTEST_SKIP() << "no font is installed";
    loadFonts(scale);
    ASSERT_EQ(atlas().Fonts.size(), 1);
    EXPECT_LE(atlas().TexWidth, 4096);
    EXPECT_LE(atlas().TexHeight, 4096);
    for (const char16_t sign : std::u16string_view(u"éΩЖ°·—…→")) {
      EXPECT_NE(atlas().Fonts[0]->FindGlyphNoFallback(sign), nullptr) << static_cast<int>(sign);
    }
    const bool withHan = std::ranges::count(fonts.back().scripts, Script::Chinese) > 0;
    EXPECT_EQ(atlas().Fonts[0]->FindGlyphNoFallback(u'写') != nullptr, withHan);
  }
}

}  // namespace
}  // namespace quor::ui
