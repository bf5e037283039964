// Extracts frames from a video as the frame stage does: bench_extract VIDEO KIND FRAMES MAX_DIMENSION FOLDER. For a
// side by side comparison with the ffmpeg program see scripts/bench_extract.sh.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "base/files/paths.h"
#include "base/log/log_store.h"
#include "ingest/frame_extractor.h"

int main(int argc, char** argv) try {
  using namespace quor;
  if (argc != 6) {
    std::fprintf(stderr, "usage: bench_extract VIDEO video|video360|dualfisheye FRAMES MAX_DIMENSION FOLDER\n");
    return 2;
  }
  IngestSettings settings;
  settings.targetFrameCount = std::atoi(argv[3]);
  settings.maxDimension = std::atoi(argv[4]);
  settings.blurRejection = false;
  LogStore log(100);
  log.setEcho(true);
  FrameExtractor extractor(log, std::nullopt, nullptr);
  const ExtractionResult result =
      extractor.extract(fromUtf8(argv[1]), parseKind(argv[2]), settings, fromUtf8(argv[5]), nullptr);
  std::printf("%zu frames\n", result.frames.size());
  return 0;
} catch (const std::exception& e) {
  std::fprintf(stderr, "error: %s\n", e.what());
  return 1;
}
