#include "gs/train/run_log.h"

#include <fstream>

#include "base/text/text.h"
#include "base/text/time_text.h"

namespace quor::gs {

std::string formatRunLogEntry(const RunLogEntry& entry, int64_t time) {
  std::string text = "==== " + formatLocalTime(time, "%Y-%m-%d %H:%M:%S") + "  " + entry.title + "\n";
  const auto line = [&](const char* label, const std::string& value) {
    text += formatText("%-12s", label) + value + "\n";
  };
  line("result", trainStateName(entry.result));
  line("technique", techniqueWord(entry.technique));
  std::string steps = std::to_string(entry.steps) + " of " + std::to_string(entry.iterations);
  if (entry.resumedFrom > 0) steps += " (continued from step " + std::to_string(entry.resumedFrom) + ")";
  line("steps", steps);
  std::string splats = std::to_string(entry.splats);
  if (entry.budget > 0) splats += " (budget " + std::to_string(entry.budget) + ")";
  line("splats", splats);
  line("duration", formatText("%.1f s (%.2f ms/step)", entry.seconds, entry.msPerStep));
  line("resolution", (entry.resolution > 0 ? std::to_string(entry.resolution) : "native") + ", " +
                         std::to_string(entry.downscaleLevels) + " coarse-to-fine levels, SH degree " +
                         std::to_string(entry.shDegree));
  const EvalResult& evaluation = entry.evaluation;
  if (evaluation.views > 0) {
    line("held-out",
         formatText("PSNR %.2f dB, SSIM %.4f, L1 %.4f over %u views", static_cast<double>(evaluation.psnr),
                    static_cast<double>(evaluation.ssim), static_cast<double>(evaluation.l1), evaluation.views));
  }
  line("device", entry.device);
  if (!entry.scene.empty()) line("scene", entry.scene);
  if (!entry.reason.empty()) line("reason", entry.reason);
  return text;
}

bool appendRunLog(const std::filesystem::path& file, const RunLogEntry& entry) noexcept {
  try {
    std::error_code ignored;
    std::filesystem::create_directories(file.parent_path(), ignored);
    std::ofstream stream(file, std::ios::binary | std::ios::app);
    stream << formatRunLogEntry(entry, wallClockSeconds());
    stream.close();
    return stream.good();
  } catch (...) {
    return false;
  }
}

}  // namespace quor::gs
