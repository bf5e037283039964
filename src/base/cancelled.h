// How work that was cancelled ends, in every folder: with an exception of this text, which callers tell from a failure
// by it and show as it is.
#pragma once

namespace quor {

inline constexpr const char* kCancelled = "Cancelled";

}  // namespace quor
