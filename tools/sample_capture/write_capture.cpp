#include <stdexcept>

#include "base/paths.h"
#include "sample_capture/options.h"

namespace quor::sample {
namespace {

constexpr int kJpegQuality = 95;

void refuseUsed(const std::filesystem::path& folder) {
  if (std::filesystem::exists(folder) && !std::filesystem::is_empty(folder)) {
    throw std::runtime_error(toUtf8(folder) + " is there already and not empty. Remove it or choose another folder.");
  }
}

}  // namespace

void writeCapture(const Options& options) {
  const std::filesystem::path images = options.out / "images";
  const std::filesystem::path sparse = options.out / "sparse" / "0";
  refuseUsed(images);
  refuseUsed(sparse);
  std::filesystem::create_directories(images);

  const Scene scene(options.orbit.seed);
  const std::vector<PinholeView> views = orbitViews(options.orbit);
  for (size_t i = 0; i < views.size(); ++i) {
    writeJpeg(images / photoName(i), renderView(scene, views[i]), kJpegQuality);
  }
  if (!options.binaryModel && !options.textModel) return;

  using gs::colmap::Encoding;
  const TrueModel truth = trueModel(scene, views, options.points, options.orbit.seed);
  if (options.binaryModel) writeModel(sparse, truth.model, truth.observations, Encoding::Binary);
  if (options.textModel) writeModel(sparse, truth.model, truth.observations, Encoding::Text);
}

}  // namespace quor::sample
