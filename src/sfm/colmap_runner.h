// Frames to cameras: runs COLMAP as a child process, one command a step, in a project's colmap folder.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "base/process/tool_finder.h"
#include "gpu/device/vulkan_context.h"
#include "project/camera_report.h"
#include "project/project.h"
#include "sfm/colmap_program.h"
#include "sfm/colmap_workspace.h"
#include "sfm/solve_progress.h"

namespace quor {

class ColmapRunner {
 public:
  struct Result {
    CameraReport report;            // also written to Project::cameraReportFile()
    std::filesystem::path dataset;  // Project::solvedFolder(): undistorted, ready to train
  };

  // `cancelled` is asked from the calling thread of run(). Features are matched on `gpu` where the project asks for
  // that and it is not null; it outlives the runner.
  ColmapRunner(std::optional<ToolLocation> colmap, LogStore& log, std::function<bool()> cancelled,
               gs::VulkanContext* gpu = nullptr);

  // Clears what an earlier solve of the project has left, then solves. Throws std::runtime_error with a whole sentence,
  // "Cancelled" too. A failed solve is never mistaken for a finished one: the dataset appears as its last act, after
  // the project was saved with the frame that the dataset is in.
  Result run(Project& project, const SolveProgress::Report& report);

 private:
  void writeMask(const Project& project);
  void placeInWorld(Project& project, const ColmapWorkspace& files);

  LogStore& log_;
  const std::function<bool()> cancelled_;
  std::optional<ColmapProgram> colmap_;
  gs::VulkanContext* const gpu_;
};

}  // namespace quor
