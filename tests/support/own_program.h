// The test program itself, for tests that start it as a child.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/files/paths.h"
#include "base/process/terminal.h"

namespace quor::test {

inline std::filesystem::path ownProgram() {
  return executableFolder() / fromUtf8(testing::internal::GetArgvs()[0]).filename();
}

// With which it was started, in UTF-8.
inline std::vector<std::string> ownArguments() {
  std::vector<std::string> all = testing::internal::GetArgvs();
  std::vector<char*> pointers;
  for (std::string& argument : all) pointers.push_back(argument.data());
  return programArguments(static_cast<int>(pointers.size()), pointers.data());
}

}  // namespace quor::test
