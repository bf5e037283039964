// How much memory the computer has to spare. Work that would need more is refused beforehand: a system that overcommits
// kills the program later, without an error to catch.
#pragma once

#include <cstdint>

namespace quor {

// Bytes that can still be taken without swapping, in a container without passing its limit; UINT64_MAX where the system
// does not say.
uint64_t availableHostMemory();

}  // namespace quor
