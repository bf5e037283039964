// The files of a training run in one folder, named as in a project.
#pragma once

#include "gs/train/train_job.h"

namespace quor::test {

inline gs::TrainOutputs outputsIn(const std::filesystem::path& folder) {
  return {
      folder,         folder / "scene.ply", folder / "scene.splat", folder / "checkpoint.quor", folder / "training.log",
      folder / "eval"};
}

}  // namespace quor::test
