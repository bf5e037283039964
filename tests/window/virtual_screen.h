// A screen of its own for a program under test (Xvfb), its pixels, and hands for mouse and keys (xdotool).
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/files/paths.h"
#include "base/image/image.h"
#include "support/child_program.h"

namespace quor::test {

class VirtualScreen {
 public:
  VirtualScreen(int width, int height)
      : server_("/bin/sh",
                {"-c", "exec Xvfb -displayfd 1 -screen 0 " + std::to_string(width) + "x" + std::to_string(height) +
                           "x24 -nolisten tcp -fbdir '" + folder_.path().string() + "'"}) {
    while (server_.output().find('\n') == std::string::npos) {
      if (!server_.running()) throw std::runtime_error("Xvfb did not start: is it installed?");
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const std::string number = server_.output();
    display_ = ":" + number.substr(0, number.find('\n'));
  }

  std::string environment() const { return "DISPLAY=" + display_; }

  // xdotool's words, for example "mousemove 10 20 click 1".
  void act(const std::string& words) const {
    ChildProgram tool("/bin/sh", {"-c", "exec xdotool " + words}, {environment()});
    const Ended ended = tool.wait();
    if (ended.exitCode != 0) throw std::runtime_error("xdotool " + words + ": " + ended.err);
  }

  // The screen as it is now. The server keeps it in a file: an X window dump of 32 bits a pixel, its header's words in
  // big-endian order (header size, ..., width, height, ..., bytes a line, ..., colours).
  Image picture() const {
    const std::string bytes = readFile(folder_ / "Xvfb_screen0");
    const auto word = [&](size_t index) {
      uint32_t value = 0;
      for (size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<uint8_t>(bytes.at(4 * index + i));
      return value;
    };
    Image image{static_cast<int>(word(4)), static_cast<int>(word(5)), {}};
    const size_t start = word(0) + size_t{12} * word(19), line = word(12);
    for (size_t y = 0; y < word(5); ++y) {
      for (size_t x = 0; x < word(4); ++x) {
        const size_t at = start + y * line + 4 * x;
        for (size_t c : {2u, 1u, 0u}) image.rgb.push_back(static_cast<uint8_t>(bytes.at(at + c)));
      }
    }
    return image;
  }

 private:
  TempFolder folder_;
  ChildProgram server_;
  std::string display_;
};

}  // namespace quor::test
