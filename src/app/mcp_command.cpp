#include "app/mcp_command.h"

#include "app/application_log.h"
#include "app/run_project.h"
#include "app/session.h"
#include "base/process/own_stdio.h"
#include "base/process/terminal.h"
#include "gs/train/engine.h"
#include "mcp/server.h"

namespace quor {

int mcpCommand(const Options& options) {
  OwnStdio stdio;
  ApplicationLog log;
  // Looked up for each job: a program or device that was missing may be there now.
  const auto open = [&] {
    const Preferences preferences = Preferences::load();
    mcp::Equipment equipment{findTools(options, preferences, log), openContext(options, preferences, log), nullptr};
    equipment.trainer = std::make_unique<gs::Engine>(*equipment.gpu, log);
    return equipment;
  };
  mcp::Server server(log, open, options.quiet ? LogLevel::Warning : LogLevel::Information);
  if (stdio.interactive()) {
    log.info("This command is started by an AI assistant; it waits for JSON-RPC messages, one a line. Ctrl-D ends it.");
  }
  server.serve({[&](std::span<char> buffer) { return stdio.read(buffer); },
                [&](std::string_view line) { return stdio.write(line); }});
  return interruptCount() > 0 ? kExitCancelled : kExitSuccess;
}

}  // namespace quor
