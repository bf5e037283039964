#include "app/command_line.h"
#include "base/process/terminal.h"
#include "gpu/device/vulkan_context.h"

int main(int argc, char** argv) {
  quor::gs::applyLayerPolicy();
  return quor::runCommandLine(quor::programArguments(argc, argv), quor::FrontEnd::CommandLineOnly);
}
