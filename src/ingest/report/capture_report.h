// What is wrong with a capture, before the hours of solving and training: read off small versions of the frames.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "ingest/frame_extractor.h"

namespace quor {

struct FrameMeasure {
  std::string name;                // as the user finds it: of the photograph, or of a video's frame
  std::string stream;              // frames of one camera, or one view of a sphere, are compared among themselves
  double sharpness = 0;            // variance of the Laplacian of the small version
  double brightness = 0;           // mean luma, 0..255
  std::vector<uint8_t> thumbnail;  // kThumbnailWidth * kThumbnailHeight luma values
};
inline constexpr int kThumbnailWidth = 24, kThumbnailHeight = 16;

struct Finding {
  std::string kind;                 // "blurred", "exposure", "duplicates", "jumps" or "cameras"
  std::vector<std::string> frames;  // their names
  std::string text;                 // for the user: what it is and what to do next
};

struct CaptureReport {
  std::vector<FrameMeasure> frames;
  std::vector<Finding> findings;
};

// Measures the frames of one input on all processors; those that cannot be read are left out. Asks `cancelled` for each
// frame, from any thread, and throws Cancelled.
CaptureReport reportCapture(const ExtractionResult& result, InputKind kind, const std::function<bool()>& cancelled);

// The findings alone; `frames` in the order in which they were taken.
std::vector<Finding> findFaults(const std::vector<FrameMeasure>& frames, InputKind kind);

// Writes {"frames": [...], "findings": [...]} of all inputs. Throws std::runtime_error.
void saveCaptureReport(const std::filesystem::path& path, const std::vector<CaptureReport>& reports);

}  // namespace quor
