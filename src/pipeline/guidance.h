// Guidance on capturing a good scene, for newcomers and AI assistants. Every front end gives the same text.
#pragma once

#include <string>

namespace quor {

// All of it; ends in a line feed.
const std::string& guidanceText();
// Its chapters on taking pictures and on reading the figures of a solve and a training; ends in a line feed.
const std::string& captureAdviceText();

}  // namespace quor
