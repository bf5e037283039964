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

int trainProject(const Options& options) {
  Session session(options);
  Project project = Project::load(absolutePath(options.paths[0]));
  options.applyTo(project);
  session.announce(project);
  session.openDevice();  // before saving: a device that cannot be had leaves the project as it was
  options.settings.empty() ? project.ensureLayout() : saveBeforeRun(project);
  return session.drive(project, options.from.value_or(Stage::Train));
}

}  // namespace

int trainCommand(const Options& options) {
  const std::string& path = options.paths[0];
  const Classification found = classifyExisting(path);
  if (found.type == PathClass::Project) return trainProject(options);
  if (found.type == PathClass::Dataset) {
    if (options.from) throw std::runtime_error("--from needs a Ombrelux project, not a dataset.");
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
