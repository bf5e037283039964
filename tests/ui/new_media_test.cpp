#include "ui/models/project/new_media.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/image/image.h"
#include "support/clips.h"
#include "support/temp_folder.h"
#include "ui/pump.h"

namespace quor::ui {
namespace {

namespace fs = std::filesystem;
using test::pump;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class NewMediaTest : public ::testing::Test {
 protected:
  fs::path photo(const std::string& name) {
    fs::create_directories((folder_ / name).parent_path());
    writePng(folder_ / name, Image{4, 3, std::vector<uint8_t>(36, 90)});
    return folder_ / name;
  }
  void add(const std::vector<fs::path>& paths) {
    form_.add(paths);
    settle();
  }
  void settle() {
    ASSERT_TRUE(pump(form_, [&] { return !form_.loading() && (form_.sources().empty() || form_.described()); }));
  }
  std::vector<std::string> lines() {
    std::vector<std::string> texts;
    for (const MediaSource& source : form_.sources()) texts.push_back(source.text());
    return texts;
  }

  test::TempFolder folder_;
  std::vector<NewMedia::Request> requests_;
  fs::path opened_;
  NewMedia form_{{[this](NewMedia::Request request) { requests_.push_back(std::move(request)); },
                  [this](fs::path folder) { opened_ = std::move(folder); }}};
};

TEST_F(NewMediaTest, SaysWhatWasFoundAndWhatWasLeftOut) {
  photo("Garden/a.png");
  photo("Garden/near/b.png");
  test::makeClip(folder_ / "Garden/walk.mp4", "testsrc=size=64x48:rate=10:duration=1");

  add({folder_ / "Garden", test::writeFile(folder_ / "notes.txt", "x"), folder_ / "gone"});
  EXPECT_THAT(lines(), ElementsAre("Garden: 2 images (subfolders included)", "walk.mp4: video"));
  EXPECT_THAT(form_.problems(),
              ElementsAre(HasSubstr("notes.txt holds no images or videos"), HasSubstr("No such file or folder: ")));

  // Once each, whichever way they come; single photographs share a row.
  add({folder_ / "Garden/walk.mp4", photo("Loose/1.png"), photo("Loose/2.png"), folder_ / "Loose/1.png"});
  EXPECT_THAT(lines(), ElementsAre("Garden: 2 images (subfolders included)", "walk.mp4: video", "Loose: 2 images"));

  form_.setKind(1, InputKind::Video360);
  form_.setKind(0, InputKind::Video);  // photographs stay photographs
  form_.remove(2);
  settle();
  EXPECT_THAT(lines(), ElementsAre("Garden: 2 images (subfolders included)",
                                   "walk.mp4: 360° video — re-projected into flat views"));
  form_.create(false);
  ASSERT_EQ(requests_.size(), 1u);
  EXPECT_EQ(requests_[0].origins, (std::vector{folder_ / "Garden", folder_ / "Garden/walk.mp4"}));
  EXPECT_FALSE(form_.createButton().enabled);  // until it is known how that went
  form_.failed();
  EXPECT_TRUE(form_.createButton().enabled);
}

TEST_F(NewMediaTest, ShowsWhereTheProjectGoesBeforeItIsMade) {
  photo("Garden/a.png");
  add({folder_ / "Garden"});
  EXPECT_EQ(form_.described()->root, folder_ / "Garden_ombrelux");
  EXPECT_FALSE(fs::exists(folder_ / "Garden_ombrelux"));
  form_.setDestination(folder_ / "elsewhere");
  EXPECT_FALSE(form_.createButton().enabled);
  settle();
  EXPECT_EQ(form_.described()->root, folder_ / "elsewhere/Garden_ombrelux");

  Project::create({{toUtf8(folder_ / "Garden"), InputKind::Images}}, {});
  form_.setDestination({});
  settle();
  EXPECT_THAT(form_.destinationNote(), HasSubstr("starts it over"));
  form_.openExisting();
  EXPECT_EQ(opened_, folder_ / "Garden_ombrelux");

  form_.clear();
  photo("other/Garden/b.png");
  add({folder_ / "other/Garden"});
  form_.setDestination(folder_.path());
  settle();
  EXPECT_THAT(form_.destinationNote(), HasSubstr("is the project of another capture"));
}

TEST_F(NewMediaTest, AFormThatWasClosedStaysClosed) {
  photo("Garden/a.png");
  form_.add({folder_ / "Garden"});
  form_.clear();
  form_.visible = false;
  settle();
  EXPECT_THAT(form_.sources(), IsEmpty());
  EXPECT_FALSE(form_.visible);
}

TEST_F(NewMediaTest, PresetsAreNumbersAndNumbersAreAPresetOrTheUsersOwn) {
  EXPECT_EQ(form_.preset(), Preset::Standard);
  for (const Preset preset : kPresets) {
    form_.choose(preset);
    EXPECT_EQ(form_.preset(), preset);
  }
  Project edited = form_.settings();
  edited.training.iterations += 1;
  form_.setSettings(edited);
  EXPECT_EQ(form_.preset(), Preset::Custom);
  form_.choose(Preset::Custom);
  EXPECT_EQ(form_.settings().training.iterations, edited.training.iterations);
}

TEST_F(NewMediaTest, TheSourcesSuggestHowCamerasAreSolvedUntilTheUserDecides) {
  photo("Garden/a.png");
  add({folder_ / "Garden"});
  EXPECT_EQ(form_.settings().sparse.matcher, Matcher::Exhaustive);
  add({test::makeClip(folder_ / "walk.mp4", "testsrc=size=64x48:rate=10:duration=1")});
  EXPECT_EQ(form_.settings().sparse.matcher, Matcher::Sequential);
  form_.remove(0);
  form_.setKind(0, InputKind::DualFisheye);
  settle();
  EXPECT_EQ(form_.settings().sparse.cameraModel, "OPENCV_FISHEYE");

  Project edited = form_.settings();
  edited.sparse.cameraModel = "FULL_OPENCV";
  form_.setSettings(edited);
  form_.setKind(0, InputKind::Video);
  settle();
  EXPECT_EQ(form_.settings().sparse.cameraModel, "FULL_OPENCV");
}

}  // namespace
}  // namespace quor::ui
