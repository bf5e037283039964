#include "ui/models/batch/batch_form.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/bare_dataset.h"
#include "support/fake_trainer.h"
#include "support/temp_folder.h"
#include "ui/pump.h"

namespace quor::ui {
namespace {

using test::pump;
using test::TempFolder;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;

class BatchFormTest : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* set : {"captures/a", "captures/b", "captures/c"}) test::writeBareDataset(folder_ / set);
  }
  BatchForm::Parts parts() {
    return {log_,
            trainer_,
            [this] { return std::make_unique<Pipeline>(trainer_, log_); },
            [this] { return occupied_; },
            {},
            [](BatchItem& item) { item.training.iterations = 77; }};
  }
  void settle() {
    ASSERT_TRUE(pump(form_, [&] { return !form_.list().busy(); }));
  }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const BatchForm::Row& row : form_.rows()) names.push_back(row.name);
    return names;
  }
  // Runs until a training has begun.
  void startTraining(int count) {
    form_.start();
    ASSERT_TRUE(pump(form_, [&] { return trainer_.starts() == count && trainer_.running(); }));
  }
  bool ends() {
    return pump(form_, [&] { return !form_.running(); });
  }
  void finishTraining() {
    gs::TrainResult result;
    result.splats = 1234;
    trainer_.end(gs::TrainState::Done, result);
  }

  const TempFolder folder_;
  LogStore log_{500};
  test::FakeTrainer trainer_;
  bool occupied_ = false;
  BatchForm form_{parts()};
};

TEST_F(BatchFormTest, GathersCapturesAndSaysWhatIsNone) {
  EXPECT_THAT(form_.whyNotStart(), HasSubstr("Add a capture"));
  form_.list().addFolder(folder_ / "captures");
  settle();
  EXPECT_THAT(names(), ElementsAre("a", "b", "c"));
  EXPECT_EQ(form_.list().destination(), toUtf8(folder_ / "captures"));
  EXPECT_EQ(form_.list().batch().items[0].training.iterations, 77);

  writeFile(folder_ / "photos/1.jpg", "");
  writeFile(folder_ / "photos/2.jpg", "");
  writeFile(folder_ / "notes/a.txt", "");
  writeFile(folder_ / "done/project.json", "{}");
  form_.list().add({folder_ / "photos/1.jpg", folder_ / "captures/a", folder_ / "photos/2.jpg", folder_ / "notes",
                    folder_ / "done", folder_ / "gone"});
  settle();
  EXPECT_THAT(names(), ElementsAre("a", "b", "c", "photos"));
  EXPECT_THAT(form_.rows()[3].media, HasSubstr("Photographs: " + toUtf8(folder_ / "photos/1.jpg") + " and 1 more"));
  EXPECT_THAT(form_.messages(), ElementsAre(HasSubstr("no videos, photographs"), HasSubstr("is a project already"),
                                            HasSubstr("There is nothing at"), HasSubstr("a is in the queue already")));
  EXPECT_EQ(form_.list().destination(), toUtf8(folder_ / "captures"));

  form_.move(3, 0);
  form_.remove(1);
  EXPECT_THAT(names(), ElementsAre("photos", "b", "c"));
  form_.list().change([](BatchItem& item) { item.training.iterations = 5; }, 2);
  Project settings = form_.editor().shownSettings();  // of all: only what is changed becomes the same
  settings.training.shDegree = 1;
  form_.editor().setSettings(settings);
  EXPECT_EQ(form_.list().batch().items[2].training.iterations, 5);
  EXPECT_EQ(form_.list().batch().items[2].training.shDegree, 1);
}

TEST_F(BatchFormTest, ReplacesNoFileThatItDoesNotKnow) {
  const auto file = writeFile(folder_ / "out/batch.json", R"({"items": [{"colmapImport": "x", "selection": "old"}]})");
  form_.list().add({folder_ / "captures/a"});
  settle();
  form_.list().setDestination(toUtf8(folder_ / "out"));
  form_.list().save();
  settle();
  EXPECT_THAT(form_.list().question(), HasSubstr(toUtf8(file)));
  form_.list().answer(false);
  settle();
  EXPECT_EQ(Batch::load(file).items[0].name(), "old");
  EXPECT_TRUE(form_.list().changed());
  form_.list().save();
  settle();
  form_.list().answer(true);
  settle();
  EXPECT_EQ(Batch::load(file).items[0].name(), "a");
  EXPECT_FALSE(form_.list().changed());
  form_.list().save();
  settle();
  EXPECT_EQ(form_.list().question(), "");

  form_.list().load(folder_ / "captures");
  settle();
  EXPECT_THAT(form_.messages(), ElementsAre(HasSubstr("No batch.json in ")));
  EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(BatchFormTest, WorksThroughTheQueueAndShowsWhereItIs) {
  form_.list().addFolder(folder_ / "captures");
  settle();
  occupied_ = true;
  EXPECT_THAT(form_.whyNotStart(), HasSubstr("A project is being worked on"));
  occupied_ = false;
  std::filesystem::remove_all(folder_ / "captures/b/sparse");
  startTraining(1);
  EXPECT_TRUE(pump(form_, [&] { return form_.rows()[0].state == BatchForm::RowState::Running; }));
  EXPECT_THAT(form_.rows()[0].text, HasSubstr("Train Gaussians: "));
  EXPECT_THAT(form_.whyNotEdit(), HasSubstr("Stop it first"));
  form_.remove(0);
  EXPECT_THAT(names(), ElementsAre("a", "b", "c"));
  finishTraining();
  ASSERT_TRUE(pump(form_, [&] { return trainer_.starts() == 2 && trainer_.running(); }));
  EXPECT_TRUE(pump(form_, [&] { return form_.rows()[2].state == BatchForm::RowState::Running; }));
  EXPECT_EQ(form_.rows()[0].text, "1234 splats");
  EXPECT_EQ(form_.summary(), "1 of 3 finished, 1 failed");

  form_.stop();
  EXPECT_TRUE(form_.stopping());
  ASSERT_TRUE(ends());
  EXPECT_EQ(form_.rows()[2].state, BatchForm::RowState::Waiting);
  EXPECT_THAT(form_.rows()[2].text, HasSubstr("Stopped at step 0"));
  EXPECT_FALSE(form_.list().changed());

  test::writeBareDataset(folder_ / "captures/b");
  form_.list().resetFailed();
  EXPECT_EQ(form_.list().batch().count(ItemState::Waiting), 2);
  startTraining(3);
  form_.cancel();
  ASSERT_TRUE(ends());
  EXPECT_EQ(form_.list().batch().count(ItemState::Waiting), 2);
  EXPECT_EQ(Batch::load(folder_ / "captures").count(ItemState::Finished), 1);
}

TEST_F(BatchFormTest, TellsWhyItCouldNotRun) {
  form_.list().add({folder_ / "captures/a"});
  settle();
  writeFile(folder_ / "file", "");
  form_.list().setDestination(toUtf8(folder_ / "file"));
  form_.start();
  settle();
  EXPECT_FALSE(form_.running());
  EXPECT_THAT(form_.messages(), ElementsAre(HasSubstr("Cannot write ")));

  BatchForm::Parts broken = parts();
  broken.makePipeline = []() -> std::unique_ptr<Pipeline> { throw std::runtime_error("No device."); };
  BatchForm form(broken);
  form.list().add({folder_ / "captures/a"});
  ASSERT_TRUE(pump(form, [&] { return !form.list().busy(); }));
  form.start();
  ASSERT_TRUE(pump(form, [&] { return !form.list().busy(); }));
  EXPECT_THAT(form.messages(), ElementsAre("No device."));
}

TEST_F(BatchFormTest, EndsWithTheWindow) {
  {
    BatchForm form(parts());
    form.list().addFolder(folder_ / "captures");
    ASSERT_TRUE(pump(form, [&] { return !form.list().busy(); }));
    form.start();
    ASSERT_TRUE(pump(form, [&] { return trainer_.running(); }));
  }
  EXPECT_FALSE(trainer_.running());
  EXPECT_EQ(Batch::load(folder_ / "captures").count(ItemState::Waiting), 3);
}

}  // namespace
}  // namespace quor::ui
