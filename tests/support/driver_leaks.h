// The validation layer and the software driver leave memory behind when they are unloaded. For the leak checker they
// are kept loaded, so that it can tell by name what is theirs; what this system leaks is still reported. The encoder of
// the tests' HEIF files leaves some too.
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define OMBRELUX_LEAK_CHECK
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define OMBRELUX_LEAK_CHECK
#endif

#ifdef OMBRELUX_LEAK_CHECK
#include <dlfcn.h>

namespace quor::test {

inline const bool driver_modules_kept = [] {
  for (const char* module : {"libVkLayer_khronos_validation.so", "libvulkan_lvp.so"}) {
    dlopen(module, RTLD_LAZY | RTLD_LOCAL | RTLD_NODELETE);
  }
  return true;
}();

}  // namespace quor::test

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that the leak checker looks for
extern "C" [[gnu::used]] inline const char* __lsan_default_suppressions() {
  return "leak:libVkLayer_khronos_validation\nleak:libvulkan_lvp\nleak:libx265\n";
}
#endif
