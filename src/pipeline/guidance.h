// What somebody who has never captured a scene, person or AI assistant, should know to get a good one. Every front end
// hands out the same text.
#pragma once

#include <string>

namespace quor {

// All of it; ends in a line feed.
const std::string& guidanceText();
// Its chapters on taking pictures and on what the numbers of a solve and of a training say; ends in a line feed.
const std::string& captureAdviceText();

}  // namespace quor
