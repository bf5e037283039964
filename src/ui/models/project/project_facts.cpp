#include "ui/models/project/project_facts.h"

#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>

#include "base/files/paths.h"
#include "base/text/text.h"
#include "colmap/model.h"
#include "gs/files/checkpoint.h"
#include "gs/files/eval_report.h"
#include "gs/files/ply_header.h"
#include "pipeline/project_contents.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

std::optional<FileFacts> fileFacts(const fs::path& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return std::nullopt;
  FileFacts facts{path, fs::file_size(path, error), fs::last_write_time(path, error)};
  if (error) return std::nullopt;
  return facts;
}

uint64_t countSplats(const fs::path& scene) {
  try {
    if (toLower(toUtf8(scene.extension())) == ".quor") return gs::readCheckpointHeader(scene).count;
    std::ifstream file(scene, std::ios::binary);
    return gs::readPlyHeader(file, toUtf8(scene)).vertexCount;
  } catch (const std::exception&) {
    return 0;
  }
}

fs::file_time_type timeOfModel(const fs::path& model) {
  const auto binary = fileFacts(model / "images.bin");
  const auto text = fileFacts(model / "images.txt");
  return binary ? binary->written : text ? text->written : fs::file_time_type();
}

std::optional<CheckpointFacts> checkpointFacts(const fs::path& path) {
  try {
    const gs::CheckpointHeader header = gs::readCheckpointHeader(path);
    return CheckpointFacts{header.step, header.technique, fs::last_write_time(path)};
  } catch (const std::exception&) {
    return std::nullopt;  // missing or unreadable
  }
}

// The first field of a line may be quoted, with its quotes doubled.
std::string takeField(const std::string& line, size_t& at) {
  std::string field;
  if (at < line.size() && line[at] == '"') {
    for (++at; at < line.size(); ++at) {
      if (line[at] == '"' && (at + 1 >= line.size() || line[++at] != '"')) break;
      field += line[at];
    }
  } else {
    const size_t end = std::min(line.find(',', at), line.size());
    field = line.substr(at, end - at);
    at = end;
  }
  return field;
}

}  // namespace

std::vector<ViewScore> readScores(const fs::path& evalFolder) {
  std::ifstream file(evalFolder / "scores.csv", std::ios::binary);
  std::vector<ViewScore> scores;
  std::set<std::string> taken;
  std::string line;
  std::getline(file, line);  // the names of the columns
  while (std::getline(file, line)) {
    ViewScore score;
    size_t at = 0;
    score.view = takeField(line, at);
    if (std::sscanf(line.c_str() + at, ",%lf,%lf,%lf", &score.psnr, &score.ssim, &score.l1) != 3) return {};
    score.picture = evalFolder / fromUtf8(gs::pictureName(score.view, taken) + ".png");
    scores.push_back(std::move(score));
  }
  return scores;
}

ProjectFacts readProjectFacts(const Project& project) {
  ProjectFacts facts;
  facts.folder = project.root;
  facts.frames = project.externalDataset.empty() ? countFrames(project) : 0;
  facts.cameras = countCameras(project);
  facts.summary = summaryLines(project, facts.frames, facts.cameras);
  if (facts.cameras > 0) {
    facts.dataset = project.externalDataset.empty() ? project.solvedFolder() : fromUtf8(project.externalDataset);
    facts.solved = timeOfModel(gs::colmap::findModelDir(facts.dataset));
  }
  facts.cameraReport = CameraReport::load(project);
  facts.scene = fileFacts(project.sceneFile());
  if (facts.scene) facts.splats = countSplats(project.sceneFile());
  facts.checkpoint = checkpointFacts(project.checkpointFile());
  facts.scores = readScores(project.evaluationFolder());
  if (const fs::path log = project.colmapLog(); fileFacts(log)) facts.colmapLog = log;
  for (const fs::path& path :
       {project.sceneFile(), project.sceneSplatFile(), project.checkpointFile(), project.trainingLog()}) {
    if (auto file = fileFacts(path)) facts.files.push_back(std::move(*file));
  }
  return facts;
}

ProjectFacts readSceneFacts(const fs::path& scene) {
  ProjectFacts facts;
  facts.folder = scene.parent_path();
  facts.scene = fileFacts(scene);
  if (!facts.scene) return facts;
  facts.splats = countSplats(scene);
  facts.files = {*facts.scene};
  return facts;
}

}  // namespace quor::ui
