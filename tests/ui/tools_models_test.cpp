// The small models: log, graphs, preferences, the window's state, what the program says about itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "support/matches_pattern.h"
#include "support/temp_folder.h"
#include "ui/models/settings/preferences_form.h"
#include "ui/models/view/log_view.h"
#include "ui/models/view/training_history.h"
#include "ui/models/view/window_state.h"
#include "ui/pump.h"

namespace quor::ui {
namespace {

using test::pump;
using test::readFile;
using test::TempFolder;
using test::writeFile;
using testing::ElementsAre;

std::vector<std::string> texts(const LogView& view) {
  std::vector<std::string> texts;
  for (const LogView::Line& line : view.lines()) texts.push_back(line.text.substr(sizeof "14:05:09"));
  return texts;
}

TEST(LogViewTest, ShowsWhatIsNewAndWhatTheFilterLetsThrough) {
  LogStore log(100);
  LogView view(log, 4);
  EXPECT_FALSE(view.update());
  log.info("one\x1b[2J");
  log.warning("Two");
  log.error("three");
  EXPECT_TRUE(view.update());
  EXPECT_FALSE(view.update());
  EXPECT_THAT(texts(view), ElementsAre("one?[2J", "warning: Two", "error: three"));

  view.setSearch("T");
  view.show(LogLevel::Error, false);
  EXPECT_THAT(texts(view), ElementsAre("warning: Two"));
  log.error("twelve");
  EXPECT_FALSE(view.update());
  log.info("ten");
  EXPECT_TRUE(view.update());
  EXPECT_THAT(view.copyText(), test::MatchesPattern("..:..:.. warning: Two\n..:..:.. ten\n"));
  EXPECT_EQ(view.count(LogLevel::Error), 2);

  log.info("eleven, of which only four stay");
  view.update();
  log.info("12t");
  view.update();
  EXPECT_EQ(view.count(LogLevel::Warning), 0);
  EXPECT_THAT(texts(view), ElementsAre("ten", "eleven, of which only four stay", "12t"));
}

gs::TrainStatus at(int32_t step, float loss, uint64_t splats = 1000, double milliseconds = 10) {
  gs::TrainStatus status;
  status.state = gs::TrainState::Training;
  status.step = step;
  status.loss = loss;
  status.splats = splats;
  status.msPerStep = milliseconds;
  return status;
}

TEST(TrainingHistoryTest, KeepsTheWholeRunInBoundedMemory) {
  TrainingHistory history(64);
  for (int32_t step = 1; step <= 30000; ++step)
    history.add(at(step, 1.0F / static_cast<float>(step), 2 * static_cast<uint64_t>(step)));
  EXPECT_LE(history.points().size(), 64);
  EXPECT_GE(history.points().size(), 30);
  EXPECT_GT(history.lastStep(), 29000);
  for (const TrainingHistory::Point& point : history.points())
    EXPECT_EQ(point.splats, static_cast<float>(2 * point.step));
  EXPECT_NEAR(history.at(15000)->step, 15000, 512);

  gs::TrainStatus loading = at(0, NAN);
  loading.state = gs::TrainState::Loading;
  history.add(loading);
  EXPECT_GT(history.points().size(), 30);
  history.add(at(1, 0.5F));
  EXPECT_EQ(history.points().size(), 1);
}

TEST(TrainingHistoryTest, OutliersDoNotFlattenACurve) {
  TrainingHistory history;
  history.add(at(1, NAN, 10, 0));
  EXPECT_FALSE(history.range(Curve::Loss));
  EXPECT_FALSE(history.range(Curve::Milliseconds));
  for (int32_t step = 2; step <= 500; ++step) {
    history.add(at(step, step < 12 ? 100.0F : 0.2F - 0.0001F * static_cast<float>(step), 5000, step == 300 ? 900 : 20));
  }
  const auto loss = history.range(Curve::Loss);
  EXPECT_LT(loss->high, 0.25F);
  EXPECT_LT(loss->low, 0.15F);
  EXPECT_GT(loss->low, 0.12F);
  EXPECT_LT(history.range(Curve::Milliseconds)->high, 30);
  history.add(at(501, 3.0F));  // what happens now is never cut off
  EXPECT_GT(history.range(Curve::Loss)->high, 3);
}

TEST(WindowStateTest, SurvivesWhatIsDamagedOrOffScreen) {
  const TempFolder folder;
  const auto file = folder / "data/window.json";
  const WindowArea laptop{0, 25, 1366, 743}, second{1366, 0, 1920, 1080};
  const WindowState none = WindowState::load(file);
  EXPECT_EQ(none.areaOn(std::vector{laptop}), (WindowArea{68, 62, 1229, 668}));
  WindowState state{{1500, 100, 1000, 700}, true, {{"log", false}}};
  state.save(file);
  const WindowState read = WindowState::load(file);
  EXPECT_TRUE(read.maximised);
  EXPECT_FALSE(read.isOpen("log", true));
  EXPECT_EQ(read.areaOn(std::vector{laptop, second}), state.area);
  EXPECT_EQ(read.areaOn(std::vector{laptop}), none.areaOn(std::vector{laptop}));

  state.area = {-20, 30, 4000, 3000};
  EXPECT_EQ(state.areaOn(std::vector{laptop}), (WindowArea{-20, 30, 1366, 743}));
  state.area = {100, -300, 800, 600};  // no title bar to pull it down with
  EXPECT_EQ(state.areaOn(std::vector{laptop}), none.areaOn(std::vector{laptop}));
  for (const char* text : {"", "[1]", "{\"width\": 5, \"height\": -1}", "{\"x\": \"left\"}", "{\"panels\": 3}"}) {
    writeFile(file, text);
    EXPECT_EQ(WindowState::load(file).area, WindowArea()) << text;
  }
}

class PreferencesFormTest : public testing::Test {
 protected:
  PreferencesForm::Parts parts() {
    const auto list = [] { return std::vector<std::string>{"A — Vulkan 1.3", "B — Vulkan 1.2"}; };
    return {preferences_, list, folder_ / "data/settings.json", std::chrono::milliseconds(20)};
  }
  std::string saved() const {
    return std::filesystem::exists(folder_ / "data/settings.json") ? readFile(folder_ / "data/settings.json") : "";
  }

  const TempFolder folder_;
  Preferences preferences_;
};

TEST_F(PreferencesFormTest, SavesAMomentAfterTheLastChangeAndAtTheEnd) {
  {
    PreferencesForm form(parts());
    EXPECT_TRUE(pump(form, [&] { return form.tools().has_value(); }));
    EXPECT_EQ(saved(), "");  // nothing has changed
    preferences_.addRecent("/p");
    EXPECT_TRUE(pump(form, [&] { return saved().find("\"/p\"") != std::string::npos; }));
    form.preferences().uiScale = 1.5F;
  }
  EXPECT_EQ(Preferences::load(folder_ / "data/settings.json"), preferences_);

  writeFile(folder_ / "file", "");
  PreferencesForm::Parts blocked = parts();
  blocked.file = folder_ / "file/settings.json";
  PreferencesForm form(blocked);
  form.preferences().uiScale = 2;
  EXPECT_TRUE(pump(form, [&] { return !form.saveMessage().empty(); }));
}

TEST_F(PreferencesFormTest, ChoosesADeviceForTheNextStart) {
  preferences_.deviceIndex = 1;
  PreferencesForm form(parts());
  form.listDevices();
  EXPECT_TRUE(pump(form, [&] { return !form.devices().empty(); }));
  EXPECT_THAT(form.devices(), ElementsAre("Automatic", "A — Vulkan 1.3", "B — Vulkan 1.2"));
  EXPECT_EQ(form.chosenDevice(), 2);
  form.chooseDevice(0);
  EXPECT_EQ(preferences_.deviceIndex, -1);
  EXPECT_TRUE(form.deviceNeedsRestart());

  PreferencesForm::Parts broken = parts();
  broken.listDevices = []() -> std::vector<std::string> { throw std::runtime_error("No Vulkan loader."); };
  PreferencesForm without(broken);
  without.listDevices();
  EXPECT_TRUE(pump(without, [&] { return without.deviceMessage() == "No Vulkan loader."; }));
}

}  // namespace
}  // namespace quor::ui
