// GoogleTest's own matcher knows less on Windows.
#pragma once

#include <gmock/gmock.h>

#include <regex>
#include <string>

namespace quor::test {

// The whole text is what the ECMAScript pattern says.
MATCHER_P(MatchesPattern, pattern, "matches " + std::string(pattern)) {
  return std::regex_match(std::string(arg), std::regex(pattern));
}

}  // namespace quor::test
