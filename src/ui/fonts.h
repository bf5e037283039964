// The fonts of the interface: which of the files on this computer show text in as many writing systems as can be had,
// and how large the texture may get that holds them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quor::ui {

// Signs that come and go together. Text: Latin, Greek, Cyrillic and the signs of the interface. The others are those in
// everyday use.
enum class Script { Text, Kana, Chinese, Japanese, Korean };

struct FontFile {
  std::filesystem::path path;
  std::vector<Script> scripts;  // to be taken from it, as far as no earlier file has a sign
};

// Where fonts lie on this computer; folders need not exist.
std::vector<std::filesystem::path> fontFolders();

// The files to load for text of a height in pixels, the main font first. Scripts that would make the texture larger
// than every device can hold are left out. Empty when there is none that is known to be good. Reads the folders' lists.
std::vector<FontFile> chooseFonts(const std::vector<std::filesystem::path>& folders, float pixels);

// The height of text at a scale, in whole pixels.
float fontPixels(float scale);

// Replaces the interface's fonts by those for the scale; the built-in font takes the place of files that are missing or
// damaged. Between two frames; the texture has to be made anew afterwards.
void loadFonts(float scale);

}  // namespace quor::ui
