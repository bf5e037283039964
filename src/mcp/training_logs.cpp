#include "mcp/training_logs.h"

#include <charconv>
#include <fstream>
#include <optional>

#include "base/files/paths.h"
#include "base/text/text.h"
#include "project/project.h"

namespace quor::mcp {

namespace fs = std::filesystem;

namespace {

constexpr const char* kScheme = "file://";
constexpr const char* kMimeType = "text/plain";
constexpr size_t kMaxBytes = size_t{512} * 1024;

fs::path logOf(const fs::path& root) {
  Project project;
  project.root = root;
  return project.trainingLog();
}

// A link in a project must not lead out of it.
bool isInside(const fs::path& log, const fs::path& root) {
  std::error_code error;
  const fs::path real = fs::canonical(log, error);
  if (error) return false;
  const fs::path expected = fs::canonical(root, error) / log.lexically_relative(root);
  return !error && real == expected && fs::is_regular_file(real, error);
}

// The end of a file, at most `most` bytes from the start of a line; nothing when it cannot be read.
std::optional<std::string> readTail(const fs::path& file, size_t most) {
  std::ifstream stream(file, std::ios::binary | std::ios::ate);
  if (!stream) return std::nullopt;
  const auto size = static_cast<uint64_t>(stream.tellg());
  const bool cut = size > most;
  std::string text(cut ? most : static_cast<size_t>(size), '\0');
  stream.seekg(static_cast<std::streamoff>(size - text.size()));
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(stream.gcount()));
  const size_t lineEnd = cut ? text.find('\n') : std::string::npos;
  return lineEnd == std::string::npos ? text : text.substr(lineEnd + 1);
}

// A path as URIs have it: slashes only, and one before a drive's letter.
std::string uriPath(const fs::path& path) {
  const std::u8string text = path.generic_u8string();
  return (text.starts_with(u8'/') ? "" : "/") + std::string(text.begin(), text.end());
}

bool plain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("/-._~:").find(c) != std::string_view::npos;
}

// The path of a file URI; nothing for any other text.
std::optional<std::string> pathOf(const std::string& uri) {
  if (!uri.starts_with(kScheme)) return std::nullopt;
  std::string path;
  for (size_t i = std::string_view(kScheme).size(); i < uri.size(); ++i) {
    if (uri[i] != '%') {
      path += uri[i];
      continue;
    }
    unsigned char byte = 0;
    if (i + 2 >= uri.size()) return std::nullopt;
    const char* digits = uri.data() + i + 1;
    if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) return std::nullopt;
    path += static_cast<char>(byte);
    i += 2;
  }
  return path;
}

}  // namespace

std::string fileUri(const fs::path& path) {
  std::string uri = kScheme;
  for (const char c : uriPath(path)) {
    uri += plain(c) ? std::string(1, c) : formatText("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
  }
  return uri;
}

Document TrainingLogs::list() const {
  Document resources = Document::array();
  for (const fs::path& root : roots_) {
    const fs::path log = logOf(root);
    if (!isInside(log, root)) continue;
    const std::string name = toUtf8(root.filename());
    resources.push_back({{"uri", fileUri(log)},
                         {"name", name + " training log"},
                         {"description", "Every run of " + name +
                                             ": technique, steps, splats, duration, held-out quality and the settings "
                                             "used."},
                         {"mimeType", kMimeType}});
  }
  return {{"resources", resources}};
}

Document TrainingLogs::templates() const {
  Document log;
  log["uriTemplate"] = "file://{+project}/output/training.log";
  log["name"] = "Training log";
  log["description"] =
      "Every run of a project: technique, steps, splats, duration, held-out quality and the settings used. {project} "
      "is "
      "the project folder, percent-encoded; call ombrelux_project_info or ombrelux_list_projects on it first.";
  log["mimeType"] = kMimeType;
  return {{"resourceTemplates", Document::array({log})}};
}

Document TrainingLogs::read(const std::string& uri) const {
  const std::optional<std::string> path = pathOf(uri);
  for (const fs::path& root : roots_) {
    const fs::path log = logOf(root);
    if (path != uriPath(log)) continue;
    const auto text = isInside(log, root) ? readTail(log, kMaxBytes) : std::nullopt;
    if (!text) throw RpcError(kResourceNotFound, "Could not read " + toUtf8(log));
    return {{"contents", Document::array({{{"uri", uri}, {"mimeType", kMimeType}, {"text", *text}}})}};
  }
  throw RpcError(kInvalidParams,
                 "Only the training logs of projects that this server has built, opened or listed can be read.");
}

}  // namespace quor::mcp
