// A COLMAP dataset that can be found and counted, but not trained on: two cameras, and no picture.
#pragma once

#include "support/temp_folder.h"

namespace quor::test {

inline void writeBareDataset(const std::filesystem::path& folder) {
  writeFile(folder / "images/a.jpg", "");
  writeFile(folder / "sparse/0/cameras.txt", "1 PINHOLE 64 48 60 60 32 24\n");
  writeFile(folder / "sparse/0/images.txt", "1 1 0 0 0 0 0 0 1 a.jpg\n\n2 1 0 0 0 0 0 1 1 b.jpg\n\n");
  writeFile(folder / "sparse/0/points3D.txt", "");
}

}  // namespace quor::test
