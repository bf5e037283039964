// The two ways to grow a splat scene. It stands here because both the settings records, which know nothing of the
// trainer, and the trainer, which knows nothing of project files, name it.
#pragma once

#include <cstdint>

namespace quor::gs {

enum class Technique : int32_t {
  Vanilla = 0,  // adaptive density control: clone, split, prune
  Mcmc = 1,     // a fixed budget of splats that relocate
};

}  // namespace quor::gs
