// How much memory the computer has to spare: what would take more is refused beforehand, since a system that hands out
// memory it does not have ends the program later without a word.
#pragma once

#include <cstdint>

namespace quor {

// Bytes that can still be taken without swapping, in a container without passing its limit; UINT64_MAX where the system
// does not say.
uint64_t availableHostMemory();

}  // namespace quor
