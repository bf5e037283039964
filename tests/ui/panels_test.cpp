// Panels only draw; here they are drawn without a screen, so that what the interface library refuses, such as a window
// that is not ended or a table in a wrong place, shows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <imgui.h>

#include <functional>

#include "support/fake_trainer.h"
#include "support/temp_folder.h"
#include "ui/models/files/file_dialog.h"
#include "ui/panels/graphs_panel.h"
#include "ui/panels/log_panel.h"
#include "ui/panels/notices.h"
#include "ui/panels/windows/about_window.h"
#include "ui/panels/windows/batch_window.h"
#include "ui/panels/windows/file_browser_panel.h"
#include "ui/panels/windows/preferences_window.h"
#include "ui/pump.h"

namespace quor::ui {
namespace {

using test::pump;
using test::TempFolder;
using test::writeFile;
using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;

class NoPictures : public ImageCache {
 public:
  std::optional<Picture> picture(const std::filesystem::path&, int) override { return std::nullopt; }
};

class Panels : public testing::Test {
 protected:
  Panels() {
    ImGui::CreateContext();
    ImGuiIO& io = ImGui::GetIO();
    io.IniFilename = nullptr;
    io.DisplaySize = {1280, 800};
    io.DeltaTime = 1.0F / 60;
    for (int key = 0; key < ImGuiKey_COUNT; ++key) io.KeyMap[key] = key;
    io.Fonts->AddFontDefault();
    io.Fonts->Build();
  }
  ~Panels() override { ImGui::DestroyContext(); }

  // Twice: popups and sizes take a frame. The words that are to be read.
  static std::string draw(const std::function<void()>& panel) {
    static std::string words;
    ImGui::GetIO().SetClipboardTextFn = [](void*, const char* text) { words = text; };
    for (int frame = 0; frame < 2; ++frame) {
      ImGui::NewFrame();
      words.clear();
      ImGui::LogToClipboard();
      panel();
      ImGui::LogFinish();
      ImGui::Render();
    }
    return words;
  }
  static std::string drawInWindow(const std::function<void()>& panel) {
    return draw([&] {
      ImGui::Begin("Window");
      panel();
      ImGui::End();
    });
  }
  static void press(ImGuiKey key) { ImGui::GetIO().KeysDown[key] = true; }

  const TempFolder folder_;
  NoPictures images_;
  FileDialog dialogs_{folder_.path(), false};
  const PanelContext context_{images_, dialogs_};
};

TEST_F(Panels, BrowseFilesUntilTheUserGivesUp) {
  writeFile(folder_ / "a folder/x", "");
  writeFile(folder_ / "scene.ply", "abc");
  for (const DialogKind kind : {DialogKind::OpenFiles, DialogKind::OpenFolder, DialogKind::SaveFile}) {
    bool answered = false;
    dialogs_.ask({kind, "Choose", {"ply"}, "scene", {}}, [&](const auto& paths) { answered = paths.empty(); });
    ASSERT_TRUE(pump(dialogs_, [&] { return !dialogs_.browser()->loading(); }));
    if (kind == DialogKind::SaveFile) dialogs_.browser()->accept();
    EXPECT_THAT(draw([&] { drawFileBrowserPanel(*dialogs_.browser(), context_); }), HasSubstr("a folder"));
    dialogs_.browser()->replace(false);
    draw([&] { drawFileBrowserPanel(*dialogs_.browser(), context_); });
    press(ImGuiKey_Escape);
    ImGui::NewFrame();
    drawFileBrowserPanel(*dialogs_.browser(), context_);
    ImGui::Render();
    ImGui::GetIO().KeysDown[ImGuiKey_Escape] = false;
    dialogs_.update();
    EXPECT_TRUE(answered);
    draw([] {});
  }
}

TEST_F(Panels, DrawABatchInEveryState) {
  test::FakeTrainer trainer;
  LogStore log(50);
  const auto makePipeline = [&] { return std::make_unique<Pipeline>(trainer, log); };
  BatchForm form({log, trainer, makePipeline, {}, {}, {}});
  bool open = true;
  const auto window = [&] { drawBatchWindow(form, context_, open); };
  draw(window);
  for (const char* name : {"a.mp4", "b.mp4"}) writeFile(folder_ / name, "");
  form.list().add({folder_ / "a.mp4", folder_ / "b.mp4", folder_ / "none"});
  ASSERT_TRUE(pump(form, [&] { return !form.list().busy(); }));
  form.editor().select(1);
  EXPECT_THAT(draw(window), AllOf(HasSubstr("a.mp4"), HasSubstr("There is nothing at ")));
  writeFile(folder_ / "batch.json", "");
  form.list().save();
  ASSERT_TRUE(pump(form, [&] { return !form.list().question().empty(); }));
  EXPECT_THAT(draw(window), HasSubstr("Replace it?"));
  form.list().answer(true);
  ASSERT_TRUE(pump(form, [&] { return !form.list().busy(); }));
  draw(window);
  form.start();
  ASSERT_TRUE(pump(form, [&] {
    draw(window);
    return form.list().batch().count(ItemState::Failed) == 2;
  }));
  EXPECT_THAT(draw(window), HasSubstr("0 of 2 finished, 2 failed"));
  open = false;
  EXPECT_THAT(draw(window), AnyOf("\n", "\r\n"));
}

TEST_F(Panels, ShowNoticesUntilTheyAreDismissedAndOfferTheFolder) {
  const PanelContext context{images_, dialogs_, [](const std::filesystem::path&) {}};
  std::vector<Notice> notices = {{"Ready", {"the good news"}, false, folder_.path()}};
  const auto panel = [&] { drawNotices(notices, context); };
  EXPECT_THAT(draw(panel), AllOf(HasSubstr("the good news"), HasSubstr("Open folder")));
  notices.push_back({"Failed", {"the reason"}, true});
  draw(panel);
  ImGui::NewFrame();  // the key is seen as pressed only when it was up before
  press(ImGuiKey_Escape);
  panel();
  ImGui::Render();
  draw(panel);
  ImGui::GetIO().KeysDown[ImGuiKey_Escape] = false;
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_EQ(notices.front().title, "Ready");
}

TEST_F(Panels, DrawLogGraphsPreferencesAndAbout) {
  LogStore log(50);
  LogView view(log, 50);
  drawInWindow([&] { drawLogPanel(view, context_); });
  log.warning("careful");
  log.error("broken 写 %s");
  EXPECT_THAT(drawInWindow([&] { drawLogPanel(view, context_); }), AllOf(HasSubstr("careful"), HasSubstr("写 %s")));

  TrainingHistory history;
  drawInWindow([&] { drawGraphsPanel(history, context_); });
  gs::TrainStatus status;
  status.state = gs::TrainState::Training;
  for (status.step = 1; status.step < 300; ++status.step) {
    if (status.step > 10) status.loss = 1.0F / static_cast<float>(status.step);
    history.add(status);
    if (status.step == 1) drawInWindow([&] { drawGraphsPanel(history, context_); });
  }
  ImGui::GetIO().MousePos = {150, 150};
  drawInWindow([&] { drawGraphsPanel(history, context_); });

  Preferences preferences;
  PreferencesForm form({preferences, [] { return std::vector<std::string>{"A"}; }, folder_ / "settings.json"});
  bool open = true;
  const auto window = [&] { drawPreferencesWindow(form, context_, open); };
  draw(window);
  ASSERT_TRUE(pump(form, [&] { return form.tools() && !form.devices().empty(); }));
  preferences.deviceIndex = 7;
  EXPECT_THAT(draw(window), HasSubstr("COLMAP"));
  draw([&] { drawAboutWindow(About::of("A — Vulkan", "A", true), context_, open); });
}

}  // namespace
}  // namespace quor::ui
