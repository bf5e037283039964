// The contents of a project's folder that the window shows and decides by. Read as a whole on a worker thread,
// since it takes a walk over the frames and the reading of a model.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "project/camera_report.h"
#include "project/project.h"
#include "settings/technique.h"

namespace quor::ui {

struct ViewScore {
  std::string view;
  double psnr = 0;  // dB
  double ssim = 0;
  double l1 = 0;
  std::filesystem::path picture;  // the photograph on the left, the scene on the right; may be missing
};

struct FileFacts {
  std::filesystem::path path;
  uint64_t bytes = 0;
  std::filesystem::file_time_type written;
};

struct CheckpointFacts {
  uint32_t step = 0;
  gs::Technique technique = gs::Technique::Vanilla;
  std::filesystem::file_time_type written;
};

struct ProjectFacts {
  std::filesystem::path folder;      // that the user is shown
  std::vector<std::string> summary;  // one line a stage
  size_t frames = 0;
  size_t cameras = 0;
  std::filesystem::path dataset;           // that can be trained on; empty without solved cameras
  std::filesystem::file_time_type solved;  // when its cameras were written
  std::optional<FileFacts> scene;          // the scene that can be looked at
  uint64_t splats = 0;                     // of that scene, 0 while unknown
  std::optional<CheckpointFacts> checkpoint;
  std::filesystem::path colmapLog;  // all that COLMAP printed in the last solve; empty: there was none
  std::vector<FileFacts> files;     // results, the scene first
  std::vector<ViewScore> scores;
  std::optional<CameraReport> cameraReport;  // what the solve of its cameras is worth
};

// Missing or damaged files give empty facts, not exceptions. Any thread.
ProjectFacts readProjectFacts(const Project& project);
// Of a scene or checkpoint that is looked at by itself.
ProjectFacts readSceneFacts(const std::filesystem::path& scene);

// output/eval/scores.csv of a training run; empty when there is none or it is damaged.
std::vector<ViewScore> readScores(const std::filesystem::path& evalFolder);

}  // namespace quor::ui
