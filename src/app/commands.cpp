#include "app/commands.h"

#include "app/run_project.h"
#include "app/session.h"
#include "base/files/paths.h"
#include "pipeline/intake.h"

namespace quor {

namespace {

constexpr const char* kOtherFolder = "Choose another folder with --out.";
constexpr const char* kWholeDataset =
    "Pass the folder that holds both images/ and the sparse model, not the model folder itself.";
constexpr IntakeAdvice kInsteadOfRun = {" — use `train` to train it again.", " — use `import` for it."};

// A project that is there already gets its new settings only once they have come to a scene.
int trainDatasetAgain(const Project& project, Session& session) {
  refuseAnothersProject(project, kOtherFolder);
  session.announce(project);
  session.openDevice();
  project.ensureLayout();
  const int code = session.drive(project, Stage::Train);
  if (code != kExitSuccess) return code;
  try {
    project.save();
  } catch (const std::exception& error) {
    session.warn(std::string("The settings of this run were not kept: ") + error.what());
  }
  return code;
}

int trainDataset(const Options& options) {
  Session session(options);
  Project project = Project::describeDataset(absolutePath(options.paths[0]), fromUtf8(options.out));
  options.applyTo(project);
  if (Project::isProject(project.root)) return trainDatasetAgain(project, session);
  saveBeforeRun(project);
  session.announce(project);
  session.openDevice();
  return session.drive(project, Stage::Train);
}

Places trainPlace(const Project& project, Stage from) {
  if (!project.externalDataset.empty()) return kOnTrainImported;
  return from == Stage::Frames ? kOnTrainFromFrames : from == Stage::Sparse ? kOnTrainFromCameras : kOnTrainOnly;
}

// What was taken for another kind of media was also taken for another kind of camera.
void applyKind(InputKind kind, Project& project) {
  const std::vector<InputSource> before = project.inputs;
  bool any = false;
  for (InputSource& input : project.inputs) {
    if ((input.kind == InputKind::Images) != (kind == InputKind::Images)) continue;
    input.kind = kind;
    any = true;
  }
  if (!any) {
    throw std::runtime_error("This project has no " + std::string(kind == InputKind::Images ? "images" : "video") +
                             " among its inputs, so --kind " + kindName(kind) + " fits none of them.");
  }
  followSuggestion(suggestedSettings(before), suggestedSettings(project.inputs), project.sparse);
}

// A setting of an earlier stage is kept, but the user should know that this run does not show it.
void warnOfLaterEffect(const Options& options, Stage from, Session& session) {
  for (const GivenOption& option : options.given) {
    if (!option.setting) continue;
    const SettingStage stage = option.setting->stage;
    if (stage == SettingStage::Frames && from != Stage::Frames) {
      session.warn(option.name + " is kept, but counts only when frames are made again (--from frames).");
    } else if (stage == SettingStage::Cameras && from == Stage::Train) {
      session.warn(option.name + " is kept, but counts only when cameras are solved again (--from sparse).");
    }
  }
}

int trainProject(const Options& options) {
  Project project = Project::load(absolutePath(options.paths[0]));
  const Stage from = options.from.value_or(Stage::Train);
  refuseMisplaced(options, trainPlace(project, from));
  Session session(options);
  if (options.kind) applyKind(*options.kind, project);
  options.applyTo(project);
  session.announce(project);
  warnOfLaterEffect(options, from, session);
  session.openDevice();  // before saving: a device that cannot be had leaves the project as it was
  if (options.settings.empty() && !options.kind) {
    project.ensureLayout();
  } else {
    saveBeforeRun(project);
  }
  return session.drive(project, from);
}

}  // namespace

int trainCommand(const Options& options) {
  const std::string& path = options.paths[0];
  const Classification found = classifyExisting(path);
  if (found.type == PathClass::Project) return trainProject(options);
  if (found.type == PathClass::Dataset) {
    if (options.from) throw std::runtime_error("--from needs a Ombrelux project, not a dataset.");
    refuseMisplaced(options, kOnTrainDataset);
    return trainDataset(options);
  }
  refuseModelWithoutImages(path, kWholeDataset);
  throw std::runtime_error(path + " is neither a Ombrelux project nor a COLMAP dataset (images/ + sparse/0).");
}

int importCommand(const Options& options) {
  classifyExisting(options.paths[0]);
  refuseModelWithoutImages(options.paths[0], kWholeDataset);
  return trainDataset(options);
}

int runMediaCommand(const Options& options) {
  const std::vector<InputSource> inputs = collectMedia(options.paths, options.kind, kInsteadOfRun);
  Session session(options);
  for (const InputSource& input : inputs) session.say("Input: " + input.path + " (" + kindLabel(input.kind) + ")");
  session.openDevice();  // before the minutes of the first stages, and before anything is written
  session.warnOfMissingColmap();
  const std::filesystem::path outDir = options.out.empty() ? std::filesystem::path() : absolutePath(options.out);
  const auto configure = [&](Project& project) { options.applyTo(project); };
  const Project project = createProject(inputs, outDir, configure, kOtherFolder);
  session.announce(project);
  return session.drive(project, Stage::Frames);
}

}  // namespace quor
