// The training logs that are offered as resources: only those of projects that this server has built, opened or listed.
#pragma once

#include <filesystem>
#include <set>
#include <string>

#include "mcp/json_rpc.h"

namespace quor::mcp {

class TrainingLogs {
 public:
  // `root`: an absolute project folder. Its log is offered once it has one.
  void add(const std::filesystem::path& root) { roots_.insert(root); }

  Document list() const;       // the result of resources/list
  Document templates() const;  // of resources/templates/list
  // Of resources/read. Only the end of a very long log is given. Throws RpcError.
  Document read(const std::string& uri) const;

 private:
  std::set<std::filesystem::path> roots_;
};

// "file://" and the absolute path, every byte outside letters, digits and "/-._~:" percent-encoded.
std::string fileUri(const std::filesystem::path& path);

}  // namespace quor::mcp
