#include <fstream>
#include <stdexcept>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "project/project.h"
#include "settings/json_members.h"

namespace quor {
namespace {

namespace fs = std::filesystem;

Json toJson(const RigView& view) {
  Json json;
  json["suffix"] = view.suffix;
  if (view.rotation) json["rotation"] = *view.rotation;
  return json;
}

Json toJson(const Extraction& extraction) {
  Json groups = Json::array();
  for (const ImageGroup& group : extraction.groups) {
    Json object;
    object["name"] = group.name;
    object["images"] = group.images;
    object["cameraModel"] = group.cameraModel;
    object["cameraParams"] = group.cameraParams;
    object["usesFisheyeMask"] = group.usesFisheyeMask;
    for (const RigView& view : group.rig) object["rig"].push_back(toJson(view));
    groups.push_back(std::move(object));
  }
  Json json;
  json["groups"] = std::move(groups);
  json["lensSize"] = extraction.lensSize;
  for (const auto& [image, position] : extraction.positions) json["positions"][image] = toJson(position);
  return json;
}

Json toJson(const Project& project) {
  Json json;
  toJson(json, project.ingest, project.sparse, project.training);
  json["name"] = project.name;
  json["createdAt"] = project.createdAt;
  Json& inputs = json["inputs"] = Json::array();
  for (const InputSource& input : project.inputs) {
    Json object;
    object["path"] = input.path;
    object["kind"] = kindName(input.kind);
    inputs.push_back(std::move(object));
  }
  if (!project.externalDataset.empty()) json["externalDataset"] = project.externalDataset;
  if (project.knownIntrinsics) json["knownIntrinsics"] = *project.knownIntrinsics;
  if (!project.extraction.groups.empty()) json["extraction"] = toJson(project.extraction);
  if (project.georeference) json["georeference"] = toJson(*project.georeference);
  return json;
}

void readInputs(const Json& list, std::vector<InputSource>& inputs) {
  for (const Json& element : list) {
    if (!element.is_object()) throwNot("inputs", "a list of objects");
    if (!findMember(element, "path")) throw std::runtime_error("an input has no \"path\"");
    InputSource input;
    std::string kind;
    readMember(element, "path", input.path);
    readMember(element, "kind", kind);
    input.kind = parseKind(kind);
    inputs.push_back(std::move(input));
  }
}

void readRig(const Json& group, std::vector<RigView>& rig) {
  const Json* views = findArray(group, "rig");
  if (!views) return;
  for (const Json& element : *views) {
    if (!element.is_object()) throwNot("rig", "a list of objects");
    RigView& view = rig.emplace_back();
    readMember(element, "suffix", view.suffix);
    const Json* rotation = findArray(element, "rotation");
    if (!rotation || rotation->size() != 4) continue;
    std::array<double, 4>& values = view.rotation.emplace();
    for (size_t i = 0; i < 4; ++i) readValue((*rotation)[i], "rotation", values[i]);
  }
}

void readExtraction(const Json& json, Extraction& extraction) {
  readMember(json, "lensSize", extraction.lensSize);
  if (const Json* positions = findObject(json, "positions")) {
    for (const auto& [image, position] : positions->items()) extraction.positions[image] = readGeoPosition(position);
  }
  const Json* groups = findArray(json, "groups");
  if (!groups) return;
  for (const Json& element : *groups) {
    if (!element.is_object()) throwNot("groups", "a list of objects");
    ImageGroup& group = extraction.groups.emplace_back();
    readMember(element, "name", group.name);
    readMember(element, "images", group.images);
    readMember(element, "cameraModel", group.cameraModel);
    readMember(element, "cameraParams", group.cameraParams);
    readMember(element, "usesFisheyeMask", group.usesFisheyeMask);
    readRig(element, group.rig);
  }
}

Project fromJson(const Json& json) {
  if (!json.is_object()) throw std::runtime_error("it holds no JSON object");
  Project project;
  fromJson(json, project.ingest, project.sparse, project.training);
  readMember(json, "name", project.name);
  readMember(json, "createdAt", project.createdAt);
  readMember(json, "externalDataset", project.externalDataset);
  if (const Json* inputs = findArray(json, "inputs")) readInputs(*inputs, project.inputs);
  const Json* intrinsics = findMember(json, "knownIntrinsics");
  if (intrinsics && intrinsics->is_array() && intrinsics->size() == 4) {
    std::array<double, 4>& values = project.knownIntrinsics.emplace();
    for (size_t i = 0; i < 4; ++i) readValue((*intrinsics)[i], "knownIntrinsics", values[i]);
  }
  if (const Json* extraction = findObject(json, "extraction")) readExtraction(*extraction, project.extraction);
  if (const Json* found = findObject(json, "georeference")) project.georeference = readGeoreference(*found);
  return project;
}

}  // namespace

Project Project::load(const fs::path& folder) {
  if (!isProject(folder)) throw std::runtime_error("No project.json in " + toUtf8(folder));
  std::ifstream file(projectFile(folder), std::ios::binary);
  if (!file) throw std::runtime_error("Cannot open " + toUtf8(projectFile(folder)));
  try {
    Project project = fromJson(Json::parse(file));
    project.root = folder;
    return project;
  } catch (const std::exception& e) {
    throw std::runtime_error("project.json in " + toUtf8(folder) + " is damaged: " + e.what());
  }
}

void Project::save() const {
  constexpr AtomicFileTexts kTexts = {"Cannot write ", "Cannot write ", "", "Cannot write ", ".tmp", true};
  std::string text;
  try {
    text = toJson(*this).dump(2) + "\n";
  } catch (const Json::exception&) {
    throw std::runtime_error("Cannot write " + toUtf8(projectFile(root)) + kTexts.partialEnding.data() +
                             ": a name or path in it is not UTF-8 text");
  }
  AtomicFile file(projectFile(root), kTexts);
  file.stream() << text;
  file.commit(AtomicFile::Durability::OnDisk);
}

}  // namespace quor
