// What the viewport's thread draws, against the renderer itself.
#include "ui/viewport/scene_renderer.h"

#include <gtest/gtest.h>

#include <cmath>

#include "gs/render/renderer.h"
#include "support/gpu_fixture.h"
#include "support/random_splats.h"
#include "support/wait_until.h"

namespace quor::ui::test {
namespace {

using quor::test::randomScene;
using quor::test::waitUntil;

class SceneRendererTest : public gs::GpuTest {
 protected:
  RenderedPicture draw(const RenderRequest& request) {
    renderer.request(request);
    return next();
  }
  RenderedPicture next() {
    std::optional<RenderedPicture> picture;
    const bool drawn = waitUntil([&] { return (picture = renderer.take()).has_value(); });
    if (!drawn) throw std::runtime_error("No picture came. " + renderer.failure());
    return *std::move(picture);
  }
  std::vector<uint8_t> expected(const gs::GaussianSet& set, const RenderRequest& request) {
    gs::SplatStore splats(context, gs::SplatStore::Use::RenderOnly);
    splats.upload(transfer, set);
    gs::Renderer reference(context, registry, gs::Renderer::Mode::RenderOnly);
    reference.reserve(splats.count(), request.camera.width, request.camera.height);
    reference.project(stream, splats, request.camera, set.shDegree, request.nearPlane);
    reference.rasterize(stream, request.background);
    stream.submit();
    std::vector<float> image(size_t{3} * static_cast<size_t>(request.camera.width * request.camera.height));
    transfer.download(reference.image(), image.data(), 0, image.size() * sizeof(float));
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < image.size(); ++i) {
      bytes.push_back(static_cast<uint8_t>(std::lround(255 * std::clamp(image[i], 0.0f, 1.0f))));
      if (i % 3 == 2) bytes.push_back(255);
    }
    return bytes;
  }

  static size_t different(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    if (a.size() != b.size()) return a.size() + b.size();
    size_t count = 0;
    for (size_t i = 0; i < a.size(); ++i) count += std::abs(a[i] - b[i]) > 1;
    return count;
  }

  static RenderRequest request() {
    RenderRequest r;
    r.camera = quor::test::testCamera(120, 80);
    r.background = {0.2f, 0.4f, 0.6f};
    return r;
  }

  LogStore log{100};
  gs::LiveScene live{context};
  SceneRenderer renderer{context, registry, live, log};
};

TEST_F(SceneRendererTest, DrawsScenesPointsAndBoth) {
  const auto scene = std::make_shared<gs::GaussianSet>(randomScene(300, 3));
  const auto points = std::make_shared<gs::GaussianSet>(randomScene(80, 4));
  gs::GaussianSet both = *scene;
  both.resize(scene->count + points->count);
  for (size_t g = 0; g < gs::kGroupCount; ++g) {
    const auto group = static_cast<gs::Group>(g);
    std::copy(points->group(group).begin(), points->group(group).end(),
              both.group(group).begin() + static_cast<std::ptrdiff_t>(scene->group(group).size()));
  }
  RenderRequest r = request();
  const RenderedPicture empty = draw(r);
  EXPECT_EQ(empty.rgba[2], 153);
  renderer.setScene(scene);
  EXPECT_EQ(different(next().rgba, expected(*scene, r)), 0u);
  renderer.setPoints(points);
  next();
  r.shown = Shown::Both;
  const RenderedPicture drawn = draw(r);
  EXPECT_EQ(drawn.splats, both.count);
  EXPECT_EQ(different(drawn.rgba, expected(both, r)), 0u);
  r.shown = Shown::Splats;
  r.splatScale = 0.01f;
  gs::GaussianSet shrunk = *scene;
  for (float& scale : shrunk.scales) scale += std::log(r.splatScale);
  EXPECT_EQ(different(draw(r).rgba, expected(shrunk, r)), 0u);
  EXPECT_TRUE(renderer.upToDate());
}

TEST_F(SceneRendererTest, FollowsARunningTraining) {
  RenderRequest r = request();
  r.live = true;
  draw(r);  // nothing yet
  for (uint64_t seed : {5u, 6u}) {
    const gs::GaussianSet set = randomScene(100 * seed, seed);
    gs::SplatStore trained(context, gs::SplatStore::Use::Training);
    trained.upload(transfer, set);
    ASSERT_TRUE(waitUntil([&] { return live.offer(stream, trained, 3); }));
    const RenderedPicture drawn = next();
    EXPECT_EQ(drawn.splats, set.count);
    EXPECT_EQ(different(drawn.rgba, expected(set, r)), 0u);
  }
}

TEST_F(SceneRendererTest, GoesOnAfterASceneThatCannotBeDrawn) {
  const auto tooLarge = std::make_shared<gs::GaussianSet>();
  tooLarge->count = 100'000'000;
  renderer.setScene(tooLarge);
  renderer.request(request());
  ASSERT_TRUE(waitUntil([&] { return renderer.failure().find("too many splats") != std::string::npos; }));
  const auto scene = std::make_shared<gs::GaussianSet>(randomScene(50, 7));
  renderer.setScene(scene);
  EXPECT_EQ(different(next().rgba, expected(*scene, request())), 0u);
  EXPECT_EQ(renderer.failure(), "");
}

TEST_F(SceneRendererTest, FreesTheMemoryOfWhatIsNoLongerShown) {
  draw(request());
  const uint64_t empty = gs::GpuBuffer::liveBytes();
  renderer.setScene(std::make_shared<gs::GaussianSet>(randomScene(20000, 8)));
  next();
  const uint64_t drawing = gs::GpuBuffer::liveBytes();
  EXPECT_GT(drawing, empty + 20000 * gs::kLiveBytesPerSplat);
  renderer.setScene(nullptr);  // closed while something else is shown
  next();
  EXPECT_LE(gs::GpuBuffer::liveBytes(), drawing - 20000 * gs::kLiveBytesPerSplat);

  renderer.setScene(std::make_shared<gs::GaussianSet>(randomScene(20000, 8)));
  next();
  renderer.request(std::nullopt);  // and when nothing is
  EXPECT_TRUE(waitUntil([&] { return gs::GpuBuffer::liveBytes() <= empty; }));
}

}  // namespace
}  // namespace quor::ui::test
