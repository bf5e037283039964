#include <stdexcept>

#include "base/files/paths.h"
#include "sample_capture/capture.h"
#include "sample_capture/options.h"
#include "sample_capture/truth_table.h"
#include "sample_capture/video_writer.h"

namespace quor::sample {
namespace {

constexpr int kJpegQuality = 95;

bool wantsTruth(const Options& options) {
  return options.binaryModel || options.textModel;
}

std::filesystem::path modelFolder(const Options& options) {
  return options.out / "sparse" / "0";
}

std::filesystem::path truthTable(const Options& options) {
  return options.out / "cameras.csv";
}

void refuseUsed(const std::filesystem::path& path) {
  if (std::filesystem::exists(path) && !std::filesystem::is_empty(path)) {
    throw std::runtime_error(toUtf8(path) + " is there already and not empty. Remove it or choose another folder.");
  }
}

void writeTrueModel(const Options& options, const Scene& scene, const std::vector<PinholeView>& views,
                    std::string (*name)(size_t)) {
  using gs::colmap::Encoding;
  if (!wantsTruth(options)) return;
  const TrueModel truth = trueModel(scene, views, options.points, options.orbit.seed, name);
  if (options.binaryModel) writeModel(modelFolder(options), truth.model, truth.observations, Encoding::Binary);
  if (options.textModel) writeModel(modelFolder(options), truth.model, truth.observations, Encoding::Text);
}

void writePhotos(const Options& options, const Scene& scene) {
  const std::filesystem::path images = options.out / mediaOf(Kind::Photos);
  std::filesystem::create_directories(images);
  const std::vector<PinholeView> views = pathViews(options.scene, options.path, options.orbit, false);
  for (size_t i = 0; i < views.size(); ++i) {
    writeJpeg(images / photoName(i), renderView(scene, views[i]), kJpegQuality);
  }
  writeTrueModel(options, scene, views, photoName);
}

// One track a lens, each with its view of every frame.
template <typename View>
void writeVideo(const Options& options, const Scene& scene, const std::vector<std::vector<View>>& lenses) {
  VideoWriter video(options.out / mediaOf(options.kind), {options.orbit.size, static_cast<int>(lenses.size()),
                                                          options.framesPerSecond, options.kind == Kind::Video360});
  for (size_t i = 0; i < lenses.front().size(); ++i) {
    for (size_t lens = 0; lens < lenses.size(); ++lens) {
      video.write(static_cast<int>(lens), renderView(scene, lenses[lens][i], Rays::Video));
    }
  }
  video.finish();
  if (!wantsTruth(options)) return;
  std::vector<std::vector<Pose>> poses;
  poses.reserve(lenses.size());
  for (const std::vector<View>& views : lenses) poses.emplace_back(views.begin(), views.end());
  writeTruthTable(truthTable(options), poses, options.framesPerSecond);
}

}  // namespace

std::filesystem::path mediaOf(Kind kind) {
  switch (kind) {
    case Kind::Video:
      return "video.mp4";
    case Kind::Video360:
      return "video360.mp4";
    case Kind::DualFisheye:
      return "video.insv";
    default:
      return "images";
  }
}

void writeCapture(const Options& options) {
  refuseUsed(options.out / mediaOf(options.kind));
  refuseUsed(modelFolder(options));
  refuseUsed(truthTable(options));
  std::filesystem::create_directories(options.out);

  const Scene scene(options.scene, options.orbit.seed);
  switch (options.kind) {
    case Kind::Photos:
      return writePhotos(options, scene);
    case Kind::Video: {
      const std::vector<PinholeView> views = pathViews(options.scene, options.path, options.orbit, true);
      writeVideo<PinholeView>(options, scene, {views});
      return writeTrueModel(options, scene, views, frameName);
    }
    case Kind::Video360:
      return writeVideo<EquirectangularView>(options, scene, {equirectangularViews(options.orbit)});
    case Kind::DualFisheye: {
      const auto [front, back] = fisheyeViews(options.orbit);
      return writeVideo<FisheyeView>(options, scene, {front, back});
    }
  }
}

}  // namespace quor::sample
