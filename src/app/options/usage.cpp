#include "app/options/usage.h"

#include "app/options/options.h"

namespace quor {

namespace {

constexpr const char* kCommands = R"(Commands:
  run <media>... [--out DIR] [options]
      build a new project from images and videos: extract frames, solve cameras
      (COLMAP), train. A folder brings its images and every video under it,
      sub-folders included; 360-degree and dual-fisheye videos are detected
  train <project|dataset> [options] [--from frames|sparse]
      train an existing project in place, reusing its frames and cameras, or a
      COLMAP dataset: a folder that holds images/ and sparse/0. --from first runs
      the project again from that stage
  import <dataset> [--out DIR] [options]
      wrap a COLMAP dataset in a new project and train it
  batch <batch.json|folder> [--json] [--quiet] [--device N]
      work through a queue of captures, one project each; settings come from the
      file. Finished ones are skipped, failed ones retried; interrupted or killed,
      the same command goes on where it stopped. It takes --colmap and --ffmpeg too
  devices
      list the Vulkan GPUs, one line each with its index
  mcp
      serve AI assistants (Model Context Protocol) on standard input and output;
      takes --device, --colmap, --ffmpeg and --quiet
  instructions [FILE]
      print what an assistant, or a newcomer, should know, or write it to FILE
  help, --help
      print this text
  version, --version
      print the version; with --verbose also what the program was built with
)";

constexpr const char* kResult = R"(
A new project is a folder named after its input plus _ombrelux. Settings are kept
in its project.json: an option that is not given leaves them as they are. Options
under Frames and Cameras are for media, and so for run and for train of its project;
an option that a command cannot use is refused.

Progress and messages go to standard error. Standard output carries only the path
of scene.ply or, with --json, one JSON object. Ctrl-C during training stops it and
still writes the scene and the checkpoint; before that, or pressed again, it cancels.
A run that was cancelled or killed goes on with `train <project> --from STAGE`.

Exit codes: 0 success, 1 failure, 2 usage error, 130 cancelled.
)";

}  // namespace

std::string usageText(FrontEnd frontEnd) {
  const bool desktop = frontEnd == FrontEnd::Desktop;
  const std::string program = desktop ? "Ombrelux" : "OmbreluxCLI";
  std::string text = std::string("Ombrelux ") + kVersion + ": 3D Gaussian splat scenes from photographs and video\n\n";
  text += "Usage: " + program + " <command> [arguments] [options]\n";
  if (desktop) text += "       Ombrelux [project|scene.ply|media]    open the window\n";
  text += "\n" + std::string(kCommands) + "\n" + optionsHelp() + kResult;
  text += "\nExamples:\n";
  text += "  " + program + " run ~/videos/garden.mp4 --frames 150\n";
  text += "  " + program + " run ~/photos/statue --resolution 1600 --iterations 15000\n";
  text += "  " + program + " import ~/captures/garden --resolution 1600 --iterations 15000\n";
  text += "  " + program + " train ~/captures/garden_ombrelux --resume --iterations 30000 --json\n";
  return text;
}

}  // namespace quor
