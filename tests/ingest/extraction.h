// One extraction of a test: its settings, its result and what it logged.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/image/image.h"
#include "ingest/frame_extractor.h"
#include "support/clips.h"
#include "support/temp_folder.h"

namespace quor::test {

struct TestExtraction {
  TempFolder folder;
  LogStore log{1000};
  IngestSettings settings;
  std::optional<ToolLocation> ffmpeg;
  std::function<bool()> cancelled;
  IngestProgress progress;

  ExtractionResult run(const std::filesystem::path& path, InputKind kind = InputKind::Video) {
    FrameExtractor extractor(log, ffmpeg, cancelled);
    return extractor.extract(path, kind, settings, folder / "frames", progress);
  }
  std::string failure(const std::filesystem::path& path, InputKind kind = InputKind::Video) {
    return thrownText([&] { run(path, kind); });
  }
  std::string logged() const {
    std::string text;
    for (const LogEntry& entry : log.entriesAfter(0)) text += levelPrefix(entry.level) + entry.text + "\n";
    return text;
  }
};

struct Colour {
  double red = 0, green = 0, blue = 0;
};

// The mean of the square of 2 * radius + 1 pixels around a place.
inline Colour colourAt(const Image& image, int x, int y, int radius = 1) {
  Colour sum;
  for (int j = y - radius; j <= y + radius; ++j) {
    for (int i = x - radius; i <= x + radius; ++i) {
      const uint8_t* rgb = &image.rgb[3 * static_cast<size_t>(j * image.width + i)];
      sum = {sum.red + rgb[0], sum.green + rgb[1], sum.blue + rgb[2]};
    }
  }
  const double count = (2 * radius + 1) * (2 * radius + 1);
  return {sum.red / count, sum.green / count, sum.blue / count};
}

inline double meanDifference(const Image& a, const Image& b) {
  if (a.width != b.width || a.height != b.height) return 255;
  double sum = 0;
  for (size_t i = 0; i < a.rgb.size(); ++i) sum += a.rgb[i] > b.rgb[i] ? a.rgb[i] - b.rgb[i] : b.rgb[i] - a.rgb[i];
  return sum / static_cast<double>(a.rgb.size());
}

}  // namespace quor::test
