#include "app/commands.h"

#include <algorithm>

#include "app/console.h"
#include "app/drive.h"
#include "app/preferences.h"
#include "base/paths.h"
#include "colmap/model.h"
#include "gpu/vulkan_context.h"
#include "gs/engine.h"
#include "pipeline/media.h"
#include "project/classify.h"

namespace quor {

namespace {

namespace fs = std::filesystem;

constexpr size_t kLogCapacity = 5000;

// Paths in project.json and in results must not depend on where the command was started, and a project is named after
// its input's last component: "." and "capture/" have to name the folder itself.
fs::path absolutePath(const std::string& path) {
  fs::path absolute = fs::absolute(fromUtf8(path));
  const bool hasParents = std::find(absolute.begin(), absolute.end(), "..") != absolute.end();
  absolute = hasParents ? fs::weakly_canonical(absolute) : absolute.lexically_normal();
  return absolute.has_filename() || !absolute.has_relative_path() ? absolute : absolute.parent_path();
}

Classification classifyExisting(const std::string& path) {
  Classification found;
  found.type = PathClass::Missing;
  if (!path.empty()) found = classifyPath(absolutePath(path));
  if (found.type == PathClass::Missing) throw std::runtime_error("No such file or folder: " + path);
  return found;
}

// A folder with a model but without the photographs is the likeliest mistake, so it gets advice instead of a bare no.
void refuseModelWithoutImages(const std::string& path) {
  const fs::path folder = absolutePath(path);
  std::error_code ignored;
  if (gs::colmap::findModelDir(folder).empty() || fs::is_directory(folder / "images", ignored)) return;
  throw std::runtime_error("Found a model in " + path +
                           " but no images/ beside it. Pass the folder that holds both images/ and the sparse model, "
                           "not the model folder itself.");
}

// The run of a command on one project: its log, its voice, and the device once it is needed.
class Session {
 public:
  explicit Session(const Options& options)
      : options_(options),
        log_(kLogCapacity),
        console_(log_, options.quiet),
        preferences_(Preferences::load()),
        tools_{findColmap(chosen(options.colmap, preferences_.colmapPath)),
               findFfmpeg(chosen(options.ffmpeg, preferences_.ffmpegPath))} {
    warnUnlessUsed("--colmap", options.colmap, tools_.colmap);
    warnUnlessUsed("--ffmpeg", options.ffmpeg, tools_.ffmpeg);
  }

  void say(const std::string& text) { console_.message(text); }
  void announce(const Project& project) { say("Project: " + toUtf8(project.root)); }

  void warn(const std::string& text) {
    log_.warning(text);
    console_.printLog();
  }

  void openDevice() {
    gs::ContextOptions context;
    context.deviceIndex = options_.device >= 0 ? options_.device : preferences_.deviceIndex;
    context_ = std::make_unique<gs::VulkanContext>(context);
    const gs::DeviceInfo& info = context_->info();
    log_.info(gs::describe(info) + (info.driver.empty() ? "" : " · driver " + info.driver));
  }

  // Frames are worth having without it, so it stops the run only where it is needed.
  void warnOfMissingColmap() {
    if (!tools_.colmap) warn("COLMAP was not found; cameras cannot be solved. Install it, or name it with --colmap.");
  }

  int drive(const Project& project, Stage from) {
    gs::Engine engine(*context_, log_);
    Pipeline pipeline(engine, log_, tools_, context_.get());
    return quor::drive(pipeline, engine, console_, project, from, options_.json);
  }

 private:
  static const std::string& chosen(const std::string& option, const std::string& preference) {
    return option.empty() ? preference : option;
  }
  void warnUnlessUsed(const char* option, const std::string& value, const std::optional<ToolLocation>& found) {
    if (value.empty() || (found && found->source == "settings")) return;
    const std::string instead = found ? "; using " + toUtf8(found->executable) : std::string();
    warn(std::string(option) + " " + value + " leads to no program" + instead + ".");
  }

  const Options& options_;
  LogStore log_;
  Console console_;
  const Preferences preferences_;
  const Tools tools_;
  std::unique_ptr<gs::VulkanContext> context_;
};

// What a project was made from.
std::string sourceOf(const Project& project) {
  return project.inputs.empty() ? project.externalDataset : project.inputs.front().path;
}

// Two captures of the same name must not end in one project.
void refuseAnothersProject(const Project& project) {
  Project earlier;
  try {
    earlier = Project::load(project.root);
  } catch (const std::exception&) {
    return;  // nothing there that could be lost
  }
  const std::string source = sourceOf(earlier);
  std::error_code ignored;
  const bool gone = source.empty() || !fs::exists(fromUtf8(source), ignored);
  if (gone || fs::equivalent(fromUtf8(source), fromUtf8(sourceOf(project)), ignored)) return;
  throw std::runtime_error(toUtf8(project.root) + " is the project of another capture, " + source +
                           ". Choose another folder with --out.");
}

// A project that is there already gets its new settings only once they have come to a scene.
int trainDatasetAgain(const Project& project, Session& session) {
  refuseAnothersProject(project);
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
  project.ensureLayout();
  project.save();
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
  project.ensureLayout();
  if (!options.settings.empty()) project.save();
  return session.drive(project, options.from.value_or(Stage::Train));
}

// --kind leaves only the media that can be of that kind; without it every video says itself what it is.
void applyKind(InputKind kind, const std::string& path, std::vector<InputSource>& inputs) {
  const bool images = kind == InputKind::Images;
  std::erase_if(inputs, [&](const InputSource& input) { return (input.kind == InputKind::Images) != images; });
  if (inputs.empty()) throw std::runtime_error(std::string(images ? "No images in " : "No videos in ") + path);
  for (InputSource& input : inputs) input.kind = kind;
}

std::vector<InputSource> collectInputs(const Options& options) {
  std::vector<InputSource> inputs;
  for (const std::string& path : options.paths) {
    Classification found = classifyExisting(path);
    switch (found.type) {
      case PathClass::Project:
        throw std::runtime_error(path + " is already a Ombrelux project — use `train` to train it again.");
      case PathClass::Dataset:
        throw std::runtime_error(path + " holds a COLMAP reconstruction — use `import` for it.");
      case PathClass::Media:
        break;
      default:
        throw std::runtime_error("No images or videos in " + path);
    }
    if (options.kind) applyKind(*options.kind, path, found.inputs);
    for (InputSource& input : found.inputs) {
      const auto same = [&](const InputSource& other) { return other.path == input.path; };
      if (std::ranges::none_of(inputs, same)) inputs.push_back(std::move(input));
    }
  }
  if (!options.kind) detectVideoKinds(inputs);
  return inputs;
}

// A folder that holds the project of other media is refused; running the same media again starts their project over.
Project createProject(const std::vector<InputSource>& inputs, const Options& options) {
  const fs::path outDir = options.out.empty() ? fs::path() : absolutePath(options.out);
  Project project = Project::describe(inputs, outDir);
  refuseAnothersProject(project);
  options.applyTo(project);
  try {
    project.ensureLayout();
    project.save();
  } catch (const std::exception& error) {
    throw std::runtime_error(std::string(error.what()) + " Choose another folder with --out.");
  }
  return project;
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
  refuseModelWithoutImages(path);
  throw std::runtime_error(path + " is neither a Ombrelux project nor a COLMAP dataset (images/ + sparse/0).");
}

int importCommand(const Options& options) {
  classifyExisting(options.paths[0]);
  refuseModelWithoutImages(options.paths[0]);
  return trainDataset(options);
}

int runMediaCommand(const Options& options) {
  const std::vector<InputSource> inputs = collectInputs(options);
  Session session(options);
  for (const InputSource& input : inputs) session.say("Input: " + input.path + " (" + kindLabel(input.kind) + ")");
  session.openDevice();  // before the minutes of the first stages, and before anything is written
  session.warnOfMissingColmap();
  Project project = createProject(inputs, options);
  session.announce(project);
  return session.drive(project, Stage::Frames);
}

}  // namespace quor
