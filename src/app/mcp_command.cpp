#include "app/mcp_command.h"

#include "app/run_project.h"
#include "app/session.h"
#include "base/crash/crash_handler.h"
#include "base/process/own_stdio.h"
#include "base/process/terminal.h"
#include "gs/train/engine.h"
#include "mcp/server.h"

namespace quor {

namespace {

constexpr size_t kLogCapacity = 5000;

}  // namespace

int mcpCommand(const Options& options) {
  OwnStdio stdio;
  LogStore log(kLogCapacity);
  log.mirrorTo(crashLogTail());
  // Preferences and programs are looked up for each job: what was missing may have been installed meanwhile.
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
