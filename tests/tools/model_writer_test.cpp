#include "colmap/model_writer.h"

#include <gmock/gmock.h>

#include <cmath>

#include "base/split_mix64.h"
#include "support/temp_folder.h"

namespace quor::gs::colmap {
namespace {

using test::readFile;
using test::TempFolder;
using testing::EndsWith;
using testing::HasSubstr;

// Values that need every digit.
Model awkwardModel() {
  SplitMix64 random(7);
  Model model;
  model.cameras[3] = {3, 1, 320, 213, {random.uniform() * 300, 1e-300, 159.99999999999997, 1.0 / 3}};
  model.cameras[4000000000U] = {4000000000U, 2, 1, 1ULL << 40, {-0.1, 2e17, 5, -1e-17}};
  for (const char* name : {"a.jpg", "left cam/f 00001.jpg", "写真.png"}) {
    Image image;
    image.id = 10 - static_cast<uint32_t>(model.images.size());
    image.cameraId = 3;
    for (double& value : image.qvec) value = random.normal();
    for (double& value : image.tvec) value = random.normal() * 1e5;
    image.name = name;
    model.images.push_back(image);
  }
  for (int i = 0; i < 50; ++i) {
    for (int k = 0; k < 3; ++k) {
      model.points.positions.push_back(static_cast<float>(random.normal() * std::pow(10, i % 9 - 4)));
      model.points.colors.push_back(static_cast<uint8_t>(random.below(256)));
    }
  }
  return model;
}

std::vector<Observations> someObservations(const Model& model) {
  std::vector<Observations> observations(model.images.size());
  observations[0] = {{1.5, 2.25, 0}, {7, 8, Observation::kNoPoint}, {3, 4, 49}};
  observations[2] = {{9, 1.0 / 3, 49}};
  return observations;
}

auto fields(const Camera& c) {
  return std::tie(c.id, c.model, c.width, c.height, c.params);
}
auto fields(const Image& i) {
  return std::tie(i.id, i.cameraId, i.qvec, i.tvec, i.name);
}

void expectSame(const Model& read, const Model& written) {
  ASSERT_EQ(read.cameras.size(), written.cameras.size());
  for (const auto& [id, camera] : written.cameras) {
    EXPECT_EQ(fields(read.cameras.at(id)), fields(camera));
  }
  ASSERT_EQ(read.images.size(), written.images.size());
  for (size_t i = 0; i < written.images.size(); ++i) {
    EXPECT_EQ(fields(read.images[i]), fields(written.images[i]));
  }
  EXPECT_EQ(read.points.positions, written.points.positions);
  EXPECT_EQ(read.points.colors, written.points.colors);
}

TEST(ModelWriter, BothEncodingsAreReadBackBitForBit) {
  const Model model = awkwardModel();
  for (const Encoding encoding : {Encoding::Binary, Encoding::Text}) {
    for (const auto& observations : {someObservations(model), std::vector<Observations>{}}) {
      TempFolder folder;
      writeModel(folder / "sparse/0", model, observations, encoding);
      expectSame(loadModel(folder / "sparse/0", true), model);
    }
  }
}

// loadModel() skips observations and tracks, so their bytes are looked at here.
TEST(ModelWriter, TracksNameTheObservationsOfEachPoint) {
  const Model model = awkwardModel();
  TempFolder folder;
  writeModel(folder.path(), model, someObservations(model), Encoding::Text);
  EXPECT_THAT(readFile(folder / "images.txt"), HasSubstr(" a.jpg\n1.5 2.25 1 7 8 -1 3 4 50\n"));
  EXPECT_THAT(readFile(folder / "images.txt"), HasSubstr(" left cam/f 00001.jpg\n\n"));
  EXPECT_THAT(readFile(folder / "points3D.txt"), HasSubstr(" -1 10 2 8 0\n"));

  writeModel(folder.path(), model, someObservations(model), Encoding::Binary);
  EXPECT_THAT(readFile(folder / "points3D.bin"), EndsWith(std::string("\x0a\0\0\0\2\0\0\0\x08\0\0\0\0\0\0\0", 16)));
}

}  // namespace
}  // namespace quor::gs::colmap
