// The figures of a finished training run as JSON: printed by `--json`, and kept beside the scene for programs that ask
// later.
#pragma once

#include <optional>
#include <string>

#include "gs/train/train_job.h"
#include "project/project.h"

namespace quor {

// One line, without a line feed.
std::string resultDocument(const Project& project, const gs::TrainResult& result);

// Writes the document to the project's result.json. Throws std::runtime_error.
void saveResult(const Project& project, const gs::TrainResult& result);

// Writes where the scene lies on the Earth to the project's georeference.json, or removes one of an earlier solve.
// Throws std::runtime_error.
void saveGeoreference(const Project& project);

// The held-out quality in result.json; nothing when there is no such file (the project was trained by an earlier
// version), when it cannot be read, or when nothing was held out.
struct HeldOutQuality {
  double psnr = 0;  // dB
  double ssim = 0;
};
std::optional<HeldOutQuality> loadQuality(const Project& project);

}  // namespace quor
