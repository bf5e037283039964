// The tools. Each returns its text or throws the sentence that says why it cannot.
#include <algorithm>
#include <stdexcept>

#include "base/files/paths.h"
#include "base/process/tool_places.h"
#include "mcp/arguments.h"
#include "mcp/project_information.h"
#include "mcp/server.h"
#include "mcp/tool_list.h"
#include "pipeline/guidance.h"
#include "pipeline/intake.h"

namespace quor::mcp {

namespace fs = std::filesystem;

namespace {

constexpr const char* kOtherFolder = "Choose another folder with destination.";
constexpr const char* kWholeDataset =
    "Pass the folder holding both images/ and the sparse model, not the model folder itself.";
constexpr IntakeAdvice kInsteadOfRun = {" — call ombrelux_train on it instead.", " — use ombrelux_import for it."};

std::string text(const Json& given, const char* name) {
  return given.contains(name) ? given[name].get<std::string>() : std::string();
}

fs::path folder(const Json& given, const char* name) {
  const std::string path = text(given, name);
  return path.empty() ? fs::path() : absolutePath(path);
}

void apply(const char* tool, const Json& given, Settings& settings) {
  applySettings(toolNamed(tool).arguments, given, settings);
}

// Does not look into the folder, which may be a whole disk.
fs::path existing(const std::string& path) {
  std::error_code ignored;
  if (fs::exists(absolutePath(path), ignored)) return absolutePath(path);
  throw std::runtime_error("No such file or folder: " + path);
}

fs::path projectFolder(const std::string& path) {
  fs::path root = existing(path);
  if (Project::isProject(root)) return root;
  throw std::runtime_error(path +
                           " is not a Ombrelux project — no project.json. Use ombrelux_run to build one from media, or "
                           "ombrelux_import for a reconstruction solved elsewhere.");
}

// The folder that holds both the model and its photographs.
fs::path datasetFolder(const Json& given) {
  const std::string reconstruction = text(given, "reconstruction");
  const std::string images = text(given, "images");
  if (classifyExisting(reconstruction).type == PathClass::Dataset && images.empty()) {
    return absolutePath(reconstruction);
  }
  if (images.empty()) {
    refuseModelWithoutImages(reconstruction, kWholeDataset);
    return absolutePath(reconstruction);  // without a model, which is said when it is wrapped
  }
  classifyExisting(images);
  const fs::path model = absolutePath(reconstruction);
  fs::path root = absolutePath(images).parent_path();
  const bool below = !model.lexically_relative(root).empty() && *model.lexically_relative(root).begin() != "..";
  if (below && absolutePath(images).filename() == "images" && classifyPath(root).type == PathClass::Dataset)
    return root;
  throw std::runtime_error("The photographs in " + images + " are not in images/ beside the model of " +
                           reconstruction +
                           ". Put both into one folder, the photographs as images/ and the model as sparse/0, and pass "
                           "that folder.");
}

// Throws when composing the batch anew would lose something: an item that was worked on, or a capture.
void refuseLoss(const Batch& batch) {
  std::error_code ignored;
  if (!fs::exists(batch.file, ignored)) return;
  const std::string instead = " Run it with ombrelux_batch, or choose another destination.";
  const Batch earlier = [&] {
    try {
      return Batch::load(batch.file);
    } catch (const std::exception& error) {
      throw std::runtime_error(error.what() + std::string(" Move it away, or choose another destination."));
    }
  }();
  const auto nameOf = [](const BatchItem& item) {
    return item.colmapImport.empty() && !item.sources.empty() ? item.sources.front().path : item.colmapImport;
  };
  for (const BatchItem& item : earlier.items) {
    if (item.state != ItemState::Waiting || !item.projectRoot.empty() || !item.note.empty()) {
      throw std::runtime_error(toUtf8(batch.file) + " holds a batch that has been worked on." + instead);
    }
    const bool kept = std::any_of(batch.items.begin(), batch.items.end(),
                                  [&](const BatchItem& other) { return nameOf(other) == nameOf(item); });
    if (!kept) {
      throw std::runtime_error(toUtf8(batch.file) + " holds a batch with another capture, " + nameOf(item) + "." +
                               instead);
    }
  }
}

}  // namespace

const std::map<std::string, Server::ToolCall>& Server::toolCalls() {
  static const std::map<std::string, ToolCall> calls = {
      {"ombrelux_run", &Server::run},
      {"ombrelux_import", &Server::import},
      {"ombrelux_train", &Server::train},
      {"ombrelux_create_batch", &Server::createBatch},
      {"ombrelux_batch", &Server::runBatch},
      {"ombrelux_job_status", &Server::jobStatus},
      {"ombrelux_job_result", &Server::jobResult},
      {"ombrelux_list_projects", &Server::listProjects},
      {"ombrelux_project_info", &Server::projectInfo},
      {"ombrelux_capture_advice", &Server::captureAdvice},
  };
  return calls;
}

std::string Server::run(const Json& given) {
  requireIdle(false);
  std::optional<InputKind> kind;
  if (given.contains("kind")) kind = parseKind(text(given, "kind"));
  const auto inputs = collectMedia(given["media"].get<std::vector<std::string>>(), kind, kInsteadOfRun);
  Equipment equipment = open_();  // before the minutes of the first stages, and before anything is written
  if (!equipment.tools.colmap) {
    throw std::runtime_error(
        "COLMAP was not found; cameras cannot be solved. Install it, or start the server with --colmap PATH. " +
        colmapAdvice());
  }
  const auto configure = [&](Project& project) { apply("ombrelux_run", given, project); };
  ProjectWork work{createProject(inputs, folder(given, "destination"), configure, kOtherFolder)};
  const std::string root = toUtf8(work.project.root);
  Document started = start(std::make_unique<Job>(nextId(), "run", std::move(work), std::move(equipment), log_));
  started["project"] = root;
  return toLine(started);
}

std::string Server::import(const Json& given) {
  requireIdle(false);
  ProjectWork work{Project::describeDataset(datasetFolder(given), folder(given, "destination")), Stage::Train};
  apply("ombrelux_import", given, work.project);
  // A project that is there already gets its new settings only once they have come to a scene.
  work.saveAtEnd = Project::isProject(work.project.root);
  if (work.saveAtEnd) refuseAnothersProject(work.project, kOtherFolder);
  Equipment equipment = open_();
  work.saveAtEnd ? work.project.ensureLayout() : saveBeforeRun(work.project);
  const std::string root = toUtf8(work.project.root);
  Document started = start(std::make_unique<Job>(nextId(), "import", std::move(work), std::move(equipment), log_));
  started["project"] = root;
  return toLine(started);
}

std::string Server::train(const Json& given) {
  requireIdle(false);
  ProjectWork work{Project::load(projectFolder(text(given, "project"))), Stage::Train};
  const std::string from = text(given, "from");
  if (!from.empty()) work.from = from == "frames" ? Stage::Frames : Stage::Sparse;
  apply("ombrelux_train", given, work.project);
  work.project.training.continueFromCheckpoint = given.value("resume", false);
  Equipment equipment = open_();
  saveBeforeRun(work.project);
  const std::string root = toUtf8(work.project.root);
  Document started = start(std::make_unique<Job>(nextId(), "train", std::move(work), std::move(equipment), log_));
  started["project"] = root;
  return toLine(started);
}

std::string Server::createBatch(const Json& given) {
  Batch batch = Batch::compose(absolutePath(text(given, "folder")), folder(given, "destination"));
  for (BatchItem& item : batch.items) apply("ombrelux_create_batch", given, item);
  refuseLoss(batch);
  batch.save();
  Document document;
  document["message"] =
      "Nothing was built. Open it in the app's Batch window (Load Saved Batch), or pass it to ombrelux_batch.";
  document["batch"] = toUtf8(batch.file);
  document["destination"] = toUtf8(batch.destination);
  Document& captures = document["captures"] = Document::array();
  for (const BatchItem& item : batch.items) captures.push_back(item.name());
  return toLine(document);
}

std::string Server::runBatch(const Json& given) {
  requireIdle(true);
  Batch batch = Batch::load(existing(text(given, "batch")));
  const std::string file = toUtf8(batch.file);
  Document started = start(std::make_unique<Job>(nextId(), std::move(batch), open_(), log_, open_));
  started["batch"] = file;
  return toLine(started);
}

std::string Server::jobStatus(const Json& given) {
  return toLine(jobNamed(text(given, "job")).status());
}

std::string Server::jobResult(const Json& given) {
  const Job& job = jobNamed(text(given, "job"));
  if (job.running()) {
    throw std::runtime_error("The " + std::string(job.kind()) + " job " + job.id() +
                             " is still running; poll it with ombrelux_job_status until it finishes.");
  }
  const Job::Result result = job.result();
  if (!result.success) throw std::runtime_error(result.text);
  return result.text;
}

std::string Server::listProjects(const Json& given) {
  const fs::path folder = existing(text(given, "folder"));
  const FoundProjects found = findProjects(folder);
  Document document;
  document["folder"] = toUtf8(folder);
  Document& projects = document["projects"] = Document::array();
  for (const fs::path& root : found.roots) {
    logs_.add(root);
    try {
      projects.push_back(projectInformation(root));
    } catch (const std::exception& error) {
      projects.push_back({{"project", toUtf8(root)}, {"error", error.what()}});
    }
  }
  if (!found.complete) document["note"] = "There is more than was looked through: name a folder further down.";
  return toLine(document);
}

std::string Server::projectInfo(const Json& given) {
  const fs::path root = projectFolder(text(given, "project"));
  logs_.add(root);
  return toLine(projectInformation(root));
}

std::string Server::captureAdvice(const Json&) {
  return captureAdviceText();
}

}  // namespace quor::mcp
