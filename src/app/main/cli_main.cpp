#include "app/command_line.h"
#include "gpu/vulkan_context.h"

int main(int argc, char** argv) {
  quor::gs::applyLayerPolicy();
  return quor::runCommandLine({argv + (argc > 0 ? 1 : 0), argv + argc}, quor::FrontEnd::CommandLineOnly);
}
