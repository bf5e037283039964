// What somebody who has never captured a scene, person or AI assistant, should know to get a good one. Every front end
// hands out the same text.
#pragma once

#include <string>

namespace quor {

const std::string& guidanceText();  // ends in a line feed

}  // namespace quor
