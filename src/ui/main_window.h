// The layout of the window: menus, the panels beside and under the viewport, the windows over it, and the question that
// is asked before something running is closed. Draws and forwards; the models do the work.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "ui/close_question.h"
#include "ui/models/about.h"
#include "ui/models/batch/batch_form.h"
#include "ui/models/files/file_dialog.h"
#include "ui/models/project/workspace.h"
#include "ui/models/settings/preferences_form.h"
#include "ui/models/view/log_view.h"
#include "ui/models/view/training_history.h"
#include "ui/models/view/window_state.h"
#include "ui/panel_context.h"
#include "ui/panels/viewport_panel.h"
#include "ui/viewport/viewport.h"
#include "ui/window.h"

namespace quor::ui {

class MainWindow {
 public:
  struct Parts {
    Workspace& workspace;
    Viewport& viewport;
    ViewportPanel& viewportPanel;
    BatchForm& batch;
    PreferencesForm& preferences;
    LogView& log;
    TrainingHistory& history;
    FileDialog& dialogs;
    const About& about;
  };
  MainWindow(const Parts& parts, const WindowState& state);

  void draw(const PanelContext& context);

  void press(const Shortcut& shortcut);

  CloseQuestion& closing() { return closing_; }

  std::map<std::string, bool> openPanels() const;
  // Name of the open project or scene, for the title bar.
  std::string title() const;

 private:
  void drawMenus();
  void drawFileMenu();
  void drawRecentMenu();
  void drawProjectMenu();
  void drawViewMenu();
  void drawBody(const PanelContext& context);
  void drawSide(const PanelContext& context);
  void drawStart();
  void drawBottom(const PanelContext& context);
  void drawWindows(const PanelContext& context);
  void drawRebuildQuestion();
  std::string viewHint() const;

  void newFromMedia(bool folder);
  void openPath(FileDialog::Kind kind);
  void build();
  void exportScene(ExportFormat format);

  const Parts parts_;
  CloseQuestion closing_;
  bool showSide_, showBottom_, showBatch_ = false, showPreferences_ = false, showAbout_ = false;
  float sideWidth_ = 0, bottomHeight_ = 0;  // pixels, 0 = to be chosen
  bool askToRebuild_ = false;
};

}  // namespace quor::ui
