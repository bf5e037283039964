#include "pipeline/batch/batch_file.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "pipeline/intake.h"
#include "pipeline/media.h"
#include "settings/json_members.h"

namespace quor {

namespace fs = std::filesystem;

namespace {

constexpr const char* kFileName = "batch.json";

fs::path resolvedPath(const fs::path& base, const std::string& text) {
  return text.empty() ? fs::path() : absolutePath(toUtf8(base / fromUtf8(text)));
}

fs::path readPath(const Json& object, const char* key, const fs::path& base) {
  std::string text;
  readMember(object, key, text);
  return resolvedPath(base, text);
}

// A batch that names its captures relatively can be moved together with them, so such a path stays as the user wrote
// it.
std::string writtenPath(const fs::path& path, const Json& earlier, const char* key, const fs::path& base) {
  const Json* text = earlier.is_object() ? findMember(earlier, key) : nullptr;
  if (text && text->is_string() && resolvedPath(base, text->get<std::string>()) == path) return *text;
  return toUtf8(path);
}

ItemState parseState(const std::string& word) {
  for (const ItemState state : {ItemState::Finished, ItemState::Failed}) {
    if (word == itemStateName(state)) return state;
  }
  return ItemState::Waiting;
}

InputSource readSource(const Json& element, const fs::path& base) {
  if (!element.is_object()) throwNot("sources", "a list of objects");
  InputSource source{toUtf8(readPath(element, "path", base)), InputKind::Images};
  if (source.path.empty()) throw std::runtime_error("a source has no \"path\"");
  std::string kind;
  readMember(element, "kind", kind);
  if (!kind.empty()) {
    source.kind = parseKind(kind);
  } else if (isVideoFile(fromUtf8(source.path))) {
    std::vector<InputSource> one{{source.path, InputKind::Video}};
    detectVideoKinds(one);
    source = one.front();
  }
  return source;
}

BatchItem readItem(const Json& json, const fs::path& base) {
  if (!json.is_object()) throwNot("items", "a list of objects");
  BatchItem item;
  item.asRead = json;
  if (const Json* sources = findArray(json, "sources")) {
    for (const Json& element : *sources) item.sources.push_back(readSource(element, base));
  }
  item.colmapImport = toUtf8(readPath(json, "colmapImport", base));
  readMember(json, "selection", item.selection);
  if (!item.sources.empty()) item.sparse = suggestedSettings(item.sources);
  fromJson(json, item.ingest, item.sparse, item.training);
  const fs::path tree = resolvedPath(base, item.sparse.vocabTreePath);
  std::error_code ignored;
  if (fs::exists(tree, ignored)) item.sparse.vocabTreePath = toUtf8(tree);  // else it may be an address
  std::string state;
  readMember(json, "state", state);
  item.state = parseState(state);
  readMember(json, "note", item.note);
  item.projectRoot = readPath(json, "projectRoot", base);
  return item;
}

Json written(const std::vector<InputSource>& sources, const Json& earlier, const fs::path& base) {
  const Json* list = earlier.is_object() ? findArray(earlier, "sources") : nullptr;
  Json result = Json::array();
  for (size_t i = 0; i < sources.size(); ++i) {
    Json source = list && i < list->size() ? (*list)[i] : Json::object();
    const std::string path = writtenPath(fromUtf8(sources[i].path), source, "path", base);
    source["path"] = path;
    source["kind"] = kindName(sources[i].kind);
    result.push_back(std::move(source));
  }
  return result;
}

Json written(const BatchItem& item, const fs::path& base) {
  Json known;
  known["sources"] = written(item.sources, item.asRead, base);
  known["colmapImport"] = writtenPath(fromUtf8(item.colmapImport), item.asRead, "colmapImport", base);
  known["selection"] = item.selection;
  toJson(known, item.ingest, item.sparse, item.training);
  known["state"] = itemStateName(item.state);
  known["note"] = item.note;
  known["projectRoot"] = writtenPath(item.projectRoot, item.asRead, "projectRoot", base);
  Json json = item.asRead.is_object() ? item.asRead : Json::object();
  json.update(known, true);
  return json;
}

Json written(const Batch& batch) {
  const fs::path base = batch.file.parent_path();
  Json json = batch.asRead.is_object() ? batch.asRead : Json::object();
  json["destination"] = writtenPath(batch.destination, batch.asRead, "destination", base);
  Json& items = json["items"] = Json::array();
  for (const BatchItem& item : batch.items) items.push_back(written(item, base));
  return json;
}

Batch readBatch(Json json, const fs::path& file) {
  if (!json.is_object()) throw std::runtime_error("it holds no JSON object");
  Batch batch;
  batch.file = file;
  const fs::path base = file.parent_path();
  batch.destination = readPath(json, "destination", base);
  if (batch.destination.empty()) batch.destination = base;
  if (const Json* items = findArray(json, "items")) {
    for (const Json& item : *items) batch.items.push_back(readItem(item, base));
  }
  json.erase("items");
  batch.asRead = std::move(json);
  return batch;
}

}  // namespace

const char* itemStateName(ItemState state) {
  switch (state) {
    case ItemState::Finished:
      return "finished";
    case ItemState::Failed:
      return "failed";
    case ItemState::Waiting:
      break;
  }
  return "waiting";
}

std::string BatchItem::name() const {
  if (!selection.empty()) return selection;
  const std::string path = !colmapImport.empty() || sources.empty() ? colmapImport : sources.front().path;
  return path.empty() ? "unnamed" : toUtf8(fromUtf8(path).filename());
}

size_t Batch::count(ItemState state) const {
  return static_cast<size_t>(std::ranges::count(items, state, &BatchItem::state));
}

Batch Batch::load(const fs::path& fileOrFolder) {
  fs::path file = absolutePath(toUtf8(fileOrFolder));
  std::error_code ignored;
  if (fs::is_directory(file, ignored)) {
    if (!fs::is_regular_file(file / kFileName, ignored)) {
      throw std::runtime_error(std::string("No ") + kFileName + " in " + toUtf8(fileOrFolder));
    }
    file /= kFileName;
  }
  if (!fs::exists(file, ignored)) throw std::runtime_error("No such file or folder: " + toUtf8(fileOrFolder));
  std::ifstream stream(file, std::ios::binary);
  if (!stream) throw std::runtime_error("Cannot open " + toUtf8(file));
  try {
    return readBatch(Json::parse(stream), file);
  } catch (const std::exception& e) {
    throw std::runtime_error(toUtf8(file) + " is damaged: " + e.what());
  }
}

void Batch::save() const {
  std::string text;
  try {
    text = written(*this).dump(2) + "\n";
  } catch (const Json::exception&) {
    throw std::runtime_error("Cannot write " + toUtf8(file) + ": a name or path in it is not UTF-8 text");
  }
  std::error_code ignored;
  fs::create_directories(file.parent_path(), ignored);  // the file then says what failed
  AtomicFile atomic(fs::weakly_canonical(file));        // a link stays one
  atomic.stream() << text;
  atomic.commit(AtomicFile::Durability::OnDisk);
}

}  // namespace quor
