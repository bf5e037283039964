// What the outermost layers tell the user about an exception that they caught.
#pragma once

#include <exception>
#include <string>

namespace quor {

// A whole sentence also for the exceptions of the standard library, whose own texts are none.
std::string failureText(const std::exception& error);

}  // namespace quor
