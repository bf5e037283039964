// The figures of one frame file for the capture report.
#pragma once

#include <filesystem>
#include <optional>

#include "ingest/report/capture_report.h"

namespace quor {

// Decodes the JPEG file at an eighth to the whole of its size, whichever is enough, and its luma alone: some
// milliseconds a frame. Name and stream stay empty. Nothing for a file that cannot be read. Any thread.
std::optional<FrameMeasure> measureFrame(const std::filesystem::path& path);

}  // namespace quor
