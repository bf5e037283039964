// The installed COLMAP, with names that programs like to trip over.
#include "colmap/model.h"
#include "sample_capture/capture.h"
#include "solve_fixture.h"

namespace quor::test {
namespace {

class Colmap : public SolveTest {};

TEST_F(Colmap, SolvesPhotographsUnderOddNames) {
  const std::optional<ToolLocation> colmap = findColmap("");
  if (!colmap) GTEST_SKIP() << "COLMAP is not installed";
  project.root = folder / "-my 'new' \"écran\" 写真 #1";
  project.ingest.fisheyeCropEdges = 0.1;
  const sample::Scene scene(1);
  const std::vector<sample::PinholeView> views = sample::orbitViews({36, {320, 213}, 1, 360});
  for (size_t i = 0; i < 8; ++i) {
    const std::string name = (i < 4 ? "s01/-é " : "s02/写 ") + std::to_string(i) + ".jpg";
    const std::filesystem::path path = project.framesFolder() / fromUtf8(name);
    std::filesystem::create_directories(path.parent_path());
    writeJpeg(path, sample::renderView(scene, views[i]), 95);
  }

  ColmapRunner runner(colmap, log, [] { return false; });
  const ColmapRunner::Result result = runner.run(project, [](const std::string&, float, int) {});

  EXPECT_EQ(result.report.images, 8u);
  EXPECT_EQ(result.report.registered, 8u) << logText();
  EXPECT_GT(result.report.points, 200u);
  EXPECT_GT(result.report.reprojectionError, 0);
  EXPECT_LT(result.report.reprojectionError, 1);
  const gs::colmap::Model model = gs::colmap::loadModel(result.dataset / "sparse", true);
  ASSERT_EQ(model.cameras.size(), 1u);
  const gs::colmap::Camera& camera = model.cameras.begin()->second;
  EXPECT_EQ(gs::colmap::modelName(camera.model), "PINHOLE");
  EXPECT_NEAR(camera.params[0], views[0].fx, 0.05 * views[0].fx);
  // A tenth off every side.
  EXPECT_NEAR(static_cast<double>(camera.width), 256, 4);
  EXPECT_NEAR(static_cast<double>(camera.height), 170, 4);
  for (const gs::colmap::Image& image : model.images) {
    const ImageSize size = readImageSize(result.dataset / "images" / fromUtf8(image.name));
    EXPECT_EQ(static_cast<uint64_t>(size.width), camera.width) << image.name;
  }
}

}  // namespace
}  // namespace quor::test
