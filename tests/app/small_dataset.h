// A COLMAP dataset small enough to train on within seconds: a coloured cube of points seen from a ring of cameras.
#pragma once

#include <array>
#include <cmath>
#include <string>

#include "base/image.h"
#include "base/split_mix64.h"
#include "base/text.h"
#include "support/temp_folder.h"

namespace quor::test {

inline void writeSmallDataset(const std::filesystem::path& folder) {
  constexpr int kViews = 8, kWidth = 64, kHeight = 48, kPoints = 300;
  constexpr double kFocal = 60, kDistance = 4;
  SplitMix64 random(7);
  std::array<std::array<double, 3>, kPoints> points{};
  std::array<std::array<uint8_t, 3>, kPoints> colours{};
  std::string pointText;
  for (size_t i = 0; i < kPoints; ++i) {
    for (double& x : points[i]) x = 2 * random.uniform() - 1;
    for (uint8_t& c : colours[i]) c = static_cast<uint8_t>(40 + random.below(200));
    pointText += formatText("%zu %f %f %f %d %d %d 0.5\n", i + 1, points[i][0], points[i][1], points[i][2],
                            colours[i][0], colours[i][1], colours[i][2]);
  }

  std::string imageText;
  std::filesystem::create_directories(folder / "images");
  for (int v = 0; v < kViews; ++v) {
    const double angle = 2 * M_PI * v / kViews;  // about the vertical axis
    const std::string name = formatText("view %d.png", v);
    imageText += formatText("%d %.9f 0 %.9f 0 0 0 %f 1 %s\n\n", v + 1, std::cos(angle / 2), std::sin(angle / 2),
                            kDistance, name.c_str());
    Image image{kWidth, kHeight, std::vector<uint8_t>(size_t{3} * kWidth * kHeight)};
    for (size_t i = 0; i < kPoints; ++i) {
      const auto& p = points[i];
      const double x = std::cos(angle) * p[0] + std::sin(angle) * p[2];
      const double z = -std::sin(angle) * p[0] + std::cos(angle) * p[2] + kDistance;
      const int left = static_cast<int>(kFocal * x / z + kWidth / 2.0) - 1;
      const int top = static_cast<int>(kFocal * p[1] / z + kHeight / 2.0) - 1;
      for (int row = std::max(top, 0); row < std::min(top + 3, kHeight); ++row) {
        for (int column = std::max(left, 0); column < std::min(left + 3, kWidth); ++column) {
          const auto at = static_cast<std::ptrdiff_t>(3 * (row * kWidth + column));
          std::copy(colours[i].begin(), colours[i].end(), image.rgb.begin() + at);
        }
      }
    }
    writePng(folder / "images" / name, image);
  }
  writeFile(folder / "sparse/0/cameras.txt",
            formatText("1 PINHOLE %d %d %f %f %f %f\n", kWidth, kHeight, kFocal, kFocal, kWidth / 2.0, kHeight / 2.0));
  writeFile(folder / "sparse/0/images.txt", imageText);
  writeFile(folder / "sparse/0/points3D.txt", pointText);
}

}  // namespace quor::test
