// The form for a COLMAP dataset whose project cannot or shall not lie beside it, for example because the dataset is on
// a read-only disk.
#pragma once

#include <filesystem>
#include <string>

#include "base/files/paths.h"
#include "ui/models/button.h"

namespace quor::ui {

struct DatasetImport {
  bool visible = false;
  std::filesystem::path dataset;
  std::filesystem::path destination;  // in which the project's folder is made; empty: beside the dataset
  std::string problem;                // why the last attempt failed; empty: there was none

  Button importButton() const {
    if (dataset.empty()) return {"Import", "Choose the dataset first.", false};
    return {"Import", "Makes the project and opens it. The dataset stays as it is.", true};
  }
  std::string place() const {
    if (!destination.empty()) return toUtf8(destination);
    return dataset.empty() ? "Beside the dataset" : toUtf8(dataset.parent_path());
  }
};

}  // namespace quor::ui
