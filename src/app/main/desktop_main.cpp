#include "app/command_line.h"
#include "base/process/terminal.h"
#include "gpu/device/vulkan_context.h"
#ifdef OMBRELUX_WINDOW
#include "ui/desktop.h"
#endif

int main(int argc, char** argv) {
  quor::gs::applyLayerPolicy();
  quor::OpenWindow openWindow;
#ifdef OMBRELUX_WINDOW
  openWindow = quor::ui::runDesktop;
#endif
  return quor::runCommandLine(quor::programArguments(argc, argv), quor::FrontEnd::Desktop, openWindow);
}
