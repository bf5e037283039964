// How a child's arguments and environment are handed to Windows: as one text each.
#pragma once

#include <string>

#include "base/process/child_process.h"

namespace quor {

// Program and arguments, quoted so that CommandLineToArgvW and the C runtime split them into the originals:
// https://learn.microsoft.com/cpp/c-language/parsing-c-command-line-arguments
std::wstring commandLine(const ChildCommand& command);

// This program's environment with the command's variables set: NAME=VALUE, each ended by a zero, sorted by name, and a
// last zero.
std::wstring environmentBlock(const ChildCommand& command);

}  // namespace quor
