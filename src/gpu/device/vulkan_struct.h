// A Vulkan structure of its type, all else zero.
#pragma once

#include <volk.h>

namespace quor::gs {

template <class T>
T vulkanStruct(VkStructureType type) {
  T made = {};
  made.sType = type;
  return made;
}

}  // namespace quor::gs
