// Closing the window while something runs: asks first, stops and saves what can be saved, or ends it at once.
#pragma once

#include "ui/models/batch/batch_form.h"
#include "ui/models/project/workspace.h"

namespace quor::ui {

class CloseQuestion {
 public:
  CloseQuestion(Workspace& workspace, BatchForm& batch) : workspace_(workspace), batch_(batch) {}

  // The user wants the window closed.
  void ask() { asked_ = true; }
  // The system wants the program to end: stops and saves what runs; asked again, ends it at once.
  void interrupt();
  // Whether the window is to close now.
  bool closed() const { return closed_; }

  void draw();  // once a frame

 private:
  bool idle() const { return workspace_.mayClose() && !batch_.running(); }
  void stopAndClose();
  void closeAtOnce();
  void drawChoices();

  Workspace& workspace_;
  BatchForm& batch_;
  bool asked_ = false, closeWhenIdle_ = false, closed_ = false;
};

}  // namespace quor::ui
