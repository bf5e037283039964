// The tools as an assistant sees them.
#pragma once

#include <vector>

#include "mcp/arguments.h"

namespace quor::mcp {

struct ToolInfo {
  const char* name;
  const char* title;
  const char* description;
  bool readOnly;  // changes nothing on the disk
  Arguments arguments;
};

const std::vector<ToolInfo>& toolList();

// Throws RpcError for an unknown name.
const ToolInfo& toolNamed(const std::string& name);

// The result of tools/list.
Document describeTools();

}  // namespace quor::mcp
