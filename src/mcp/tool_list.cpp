#include "mcp/tool_list.h"

namespace quor::mcp {

namespace {

Argument required(const char* name, ArgumentType type, const char* description) {
  Argument argument{name, type, description};
  argument.required = true;
  return argument;
}

Argument choice(const char* name, const char* description, std::vector<const char*> choices) {
  Argument argument{name, ArgumentType::Choice, description};
  argument.choices = std::move(choices);
  return argument;
}

Argument destination(const char* description) {
  return {"destination", ArgumentType::Path, description};
}

Argument jobArgument() {
  return required("job", ArgumentType::Text, "The job id that the starting tool answered with");
}

const char* const kNewFolder = "Folder in which the new project folder is made (default: beside the input)";

std::vector<ToolInfo> buildTools() {
  return {
      {"ombrelux_run", "Build a splat from media",
       "Build a Gaussian Splat from photos or video. Starts a job and returns immediately; poll ombrelux_job_status "
       "until it finishes.",
       false,
       joined({{required("media", ArgumentType::Paths,
                         "Absolute path of a video (ordinary, 360° or Insta360 .insv) or of a folder whose photos and "
                         "videos, sub-folders included, become one project; or a list of such paths for one project"),
                destination(kNewFolder),
                choice("kind", "What every input is (detected when left out)",
                       {"images", "video", "video360", "dualfisheye"})},
               settingArguments(kOnRun)})},
      {"ombrelux_import", "Train a reconstruction solved elsewhere",
       "Wrap a COLMAP reconstruction that was solved elsewhere in a new project and train it. Starts a job and returns "
       "immediately; poll ombrelux_job_status until it finishes.",
       false,
       joined({{required("reconstruction", ArgumentType::Path,
                         "Absolute path of the folder that holds images/ and the sparse model (sparse/0)"),
                Argument{"images", ArgumentType::Path,
                         "Its images/ folder, which makes it possible to name the model folder as reconstruction; left "
                         "out, it is looked for beside the model"},
                destination(kNewFolder)},
               settingArguments(kOnImport)})},
      {"ombrelux_train", "Train a project again",
       "Train an existing project again in place, or resume its checkpoint. A setting that is left out stays as the "
       "project has it. Starts a job and returns immediately; poll ombrelux_job_status until it finishes.",
       false,
       joined(
           {{required("project", ArgumentType::Path, "Absolute path of the project folder"),
             Argument{"resume", ArgumentType::Boolean,
                      "true goes on from output/checkpoint.quor up to iterations, which must be more than it has; "
                      "false starts over (default false)"},
             choice("from",
                    "First do this stage again: frames (needed after a change of frames, max_dimension or kind of "
                    "media) or sparse (after a change of the camera, mask or crop settings); left out, only training",
                    {"frames", "sparse"})},
            settingArguments(kOnTrainProject)})},
      {"ombrelux_batch",
       "Run a batch",
       "Run a saved batch as one job: one project after another, finished ones skipped, failed ones tried again. "
       "Returns immediately; poll ombrelux_job_status until it finishes.",
       false,
       {required("batch", ArgumentType::Path, "Absolute path of a batch.json or of the folder that holds it")}},
  };
}

std::vector<ToolInfo> otherTools() {
  return {
      {"ombrelux_create_batch", "Compose a batch",
       "Compose batch.json from a folder of captures, one project per capture (each video, each folder of photos, each "
       "COLMAP reconstruction directly in the folder), without building anything.",
       false,
       joined({{required("folder", ArgumentType::Path, "Absolute path of the folder of captures"),
                destination("Folder for batch.json and the projects (default: the folder of captures)")},
               settingArguments(kOnImport)})},
      {"ombrelux_job_status",
       "Status of a job",
       "What a job is doing: its state (running, finished or failed), stage, progress and splats. Ask every 10 to 60 "
       "seconds; a build takes minutes to hours.",
       true,
       {jobArgument()}},
      {"ombrelux_job_result",
       "Result of a job",
       "The final result of a finished job: the files, the number of splats and the held-out scores; of a batch every "
       "project; of a failed job the reason.",
       true,
       {jobArgument()}},
      {"ombrelux_list_projects",
       "Find projects",
       "Find Ombrelux projects under a folder and summarise each.",
       true,
       {required("folder", ArgumentType::Path, "Absolute path of the folder to look through, sub-folders included")}},
      {"ombrelux_project_info",
       "Information on a project",
       "What a project holds: inputs, frames, registered images, settings, the trained scene, checkpoint, training log "
       "and held-out quality.",
       true,
       {required("project", ArgumentType::Path, "Absolute path of the project folder")}},
      {"ombrelux_capture_advice",
       "Advice for capturing",
       "How to photograph or film a scene so that it can be built: overlap, light, distances, numbers of pictures, "
       "360° "
       "cameras and drones with the crop and trim settings for aerial fisheye rims. Read it before advising anybody.",
       true,
       {}},
  };
}

}  // namespace

const std::vector<ToolInfo>& toolList() {
  static const std::vector<ToolInfo> tools = [] {
    std::vector<ToolInfo> all = buildTools();
    for (ToolInfo& tool : otherTools()) all.push_back(std::move(tool));
    return all;
  }();
  return tools;
}

const ToolInfo& toolNamed(const std::string& name) {
  for (const ToolInfo& tool : toolList()) {
    if (name == tool.name) return tool;
  }
  throw RpcError(kInvalidParams, "Unknown tool: " + name);
}

Document describeTools() {
  Document tools = Document::array();
  for (const ToolInfo& info : toolList()) {
    Document tool;
    tool["name"] = info.name;
    tool["title"] = info.title;
    tool["description"] = info.description;
    tool["inputSchema"] = schemaOf(info.arguments);
    tool["annotations"] = {{"title", info.title}, {"readOnlyHint", info.readOnly}, {"openWorldHint", false}};
    tools.push_back(std::move(tool));
  }
  return {{"tools", tools}};
}

}  // namespace quor::mcp
