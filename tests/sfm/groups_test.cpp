#include "sfm/extract/camera_groups.h"
#include "solve_fixture.h"

namespace quor::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class Groups : public SolveTest {};

TEST_F(Groups, HoldEveryFrameOnceInTheTermsOfTheExtraction) {
  addFrame("s01/a.jpg");
  addFrame("s01/é b.jpg");
  addFrame("s02/a.jpg", 10, 6);
  addFrame("s02/c.jpg");
  writeFile(project.framesFolder() / "s02/d.jpg", "no picture");
  project.extraction.groups = {{"one", {"s01/é b.jpg", "gone.jpg", "s01/a.jpg"}, "PINHOLE", {5, 5, 4, 3}, false},
                               {"two", {"gone too.jpg"}, "PINHOLE", {5, 5, 4, 3}, false}};
  const std::vector<std::string> names = frameNames(project);
  EXPECT_THAT(names, ElementsAre("s01/a.jpg", "s01/é b.jpg", "s02/a.jpg", "s02/c.jpg", "s02/d.jpg"));

  std::vector<ImageGroup> groups = cameraGroups(project, names, log);
  ASSERT_EQ(groups.size(), 3u);
  EXPECT_THAT(groups[0].images, ElementsAre("s01/a.jpg", "s01/é b.jpg"));
  EXPECT_THAT(groups[1].images, ElementsAre("s02/c.jpg"));
  EXPECT_THAT(groups[2].images, ElementsAre("s02/a.jpg"));
  EXPECT_EQ(groups[2].cameraModel, "OPENCV");
  EXPECT_THAT(logText(), HasSubstr("warning: The frame s02/d.jpg cannot be read and is left out."));
  EXPECT_FALSE(hasFixedIntrinsics(groups));
  groups.resize(1);
  EXPECT_TRUE(hasFixedIntrinsics(groups));
}

TEST_F(Groups, GetAnExtractionAndACameraEach) {
  addFrames();
  addFrame("e.jpg", 10, 6);
  project.sparse.singleCamera = false;
  project.extraction.lensSize = 8;
  project.extraction.groups = {
      {"clip_lens1", {"a.jpg", "b.jpg"}, "OPENCV_FISHEYE", {5.1, 5.1, 4, 4, 0, 0, 0, 0.25}, true},
      {"clip_lens2", {"c.jpg", "d.jpg"}, "OPENCV_FISHEYE", {0.1, 5.1, 4, 4, 0, 0, 0, 0}, true}};
  FakeColmap colmap(folder / "tool");
  colmap.mapsTo("0", {"a.jpg"});
  solve(colmap);

  std::vector<std::string> extractions = colmap.calls();
  ASSERT_GE(extractions.size(), 3u);
  const std::string mask = " --ImageReader.camera_mask_path " + toUtf8(project.maskFile()) + " ";
  EXPECT_THAT(extractions[0],
              AllOf(HasSubstr("group01.txt"), HasSubstr("--ImageReader.single_camera_per_folder 1"), HasSubstr(mask),
                    HasSubstr("--ImageReader.camera_model OPENCV_FISHEYE --ImageReader.camera_params "
                              "5.0999999999999996,5.0999999999999996,4,4,0,0,0,0.25 ")));
  EXPECT_THAT(extractions[1], AllOf(HasSubstr("group02.txt"), HasSubstr("0.10000000000000001,5.")));
  EXPECT_THAT(extractions[2], AllOf(HasSubstr("group03.txt"), HasSubstr("camera_model OPENCV "),
                                    Not(HasSubstr("camera_params")), Not(HasSubstr(mask))));
  EXPECT_EQ(readFile(project.colmapFolder() / "lists/group02.txt"), "c.jpg\nd.jpg\n");
  EXPECT_THAT(colmap.call("mapper"), Not(HasSubstr("ba_refine")));
  EXPECT_EQ(messages[1], "Extracting features (group 2 of 3, 2 images)");
  EXPECT_THAT(logText(), AllOf(HasSubstr("  clip_lens1 intrinsics: 5.1 5.1 4 4"), HasSubstr("Fisheye mask: hiding ")));
}

TEST_F(Groups, ShareNoCameraWhenThePicturesOfASourceDoNot) {
  addFrames();
  project.inputs = {{"/photos", InputKind::Images}};
  const auto extraction = [&](const std::string& folderName, FakeVersion version) {
    FakeColmap colmap(folder / folderName, version);
    colmap.mapsTo("0", {"a.jpg"});
    reached = 0;
    solve(colmap);
    return colmap.call("feature_extractor");
  };
  EXPECT_THAT(extraction("one", FakeVersion::Three), HasSubstr(" --ImageReader.single_camera 1 "));
  project.sparse.singleCamera = false;
  EXPECT_THAT(extraction("each", FakeVersion::Three), HasSubstr(" --ImageReader.single_camera_per_image 1 "));
  EXPECT_THAT(extraction("mute", FakeVersion::Mute), HasSubstr(" --ImageReader.single_camera_per_folder 1 "));
  EXPECT_THAT(logText(), HasSubstr("warning: This COLMAP cannot give every picture a camera of its own"));
  project.inputs.push_back({"/more", InputKind::Images});
  EXPECT_THAT(extraction("several", FakeVersion::Three), HasSubstr(" --ImageReader.single_camera_per_folder 1 "));
}

TEST_F(Groups, KeepKnownCamerasAsTheyAre) {
  addFrames();
  project.extraction.groups = {{"views", frames, "PINHOLE", {5, 5, 4, 3}, false}};
  FakeColmap colmap(folder / "tool", FakeVersion::Four);
  colmap.mapsTo("0", {"a.jpg", "b.jpg"});
  solve(colmap);
  EXPECT_THAT(colmap.call("mapper"),
              HasSubstr(" --Mapper.ba_refine_focal_length 0 --Mapper.ba_refine_principal_point 0 "
                        "--Mapper.ba_refine_extra_params 0 "));
}

}  // namespace
}  // namespace quor::test
