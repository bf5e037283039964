// A kernel's interface, its buffers in binding order and its push block, is written once, as two preprocessor lists
// that GLSL and C++ both read (interfaces.h beside the kernels):
//
//   #define TILE_RANGES_BUFFERS(BUFFER)  BUFFER(0, readonly, uint, tileKey) BUFFER(1, writeonly, uint, start)
//   #define TILE_RANGES_PUSH(FIELD)      FIELD(uint, instances) FIELD(uint, tiles)
//
// GLSL turns them into declarations: DECLARE_BUFFERS(TILE_RANGES) and DECLARE_PUSH(TILE_RANGES). C++ turns them into a
// type with a member for each buffer, which ComputeStream dispatches: DECLARE_KERNEL(TileRanges, "tile_ranges",
// TILE_RANGES). The element type matters to GLSL alone; a variant of a kernel may define its own.
#ifndef OMBRELUX_KERNEL_INTERFACE_H
#define OMBRELUX_KERNEL_INTERFACE_H

#ifndef __cplusplus

#define readwrite
#define DECLARE_BUFFER(index, access, type, name)     \
  layout(binding = index) access buffer name##Block { \
    type name[];                                      \
  };
#define DECLARE_FIELD(type, name) type name;
#define DECLARE_BUFFERS(KERNEL) KERNEL##_BUFFERS(DECLARE_BUFFER)
#define DECLARE_PUSH(KERNEL) layout(push_constant) uniform Push{KERNEL##_PUSH(DECLARE_FIELD)};

#else

#include <array>
#include <cstddef>
#include <cstdint>

namespace quor::gs {

class GpuBuffer;
using BufferRef = const GpuBuffer*;

namespace kernels {

using uint = uint32_t;
using vec4 = std::array<float, 4>;
using uvec4 = std::array<uint32_t, 4>;

enum class Access { readonly, writeonly, readwrite };
struct Binding {
  uint index;
  Access access;
};
struct Field {  // of the push block, in bytes
  size_t offset, size;
};

}  // namespace kernels
}  // namespace quor::gs

#define KERNEL_MEMBER(index, access, type, name) BufferRef name;
#define KERNEL_MEMBER_NAME(index, access, type, name) name,
#define KERNEL_BINDING(index, access, type, name) Binding{index, Access::access},
#define KERNEL_PUSH_MEMBER(type, name) type name;
#define KERNEL_PUSH_FIELD(type, name) Field{offsetof(Push, name), sizeof(Push::name)},

// Used inside namespace quor::gs::kernels.
// clang-format off
#define DECLARE_KERNEL(Type, NAME, KERNEL)                                                           \
  struct Type {                                                                                      \
    static constexpr const char* kName = NAME;                                                       \
    static constexpr auto kBindings = std::to_array({KERNEL##_BUFFERS(KERNEL_BINDING)});             \
    struct Push {                                                                                    \
      KERNEL##_PUSH(KERNEL_PUSH_MEMBER)                                                              \
    };                                                                                               \
    static constexpr auto pushFields() { return std::to_array({KERNEL##_PUSH(KERNEL_PUSH_FIELD)}); } \
    KERNEL##_BUFFERS(KERNEL_MEMBER)                                                                  \
    std::array<BufferRef, kBindings.size()> buffers() const {                                        \
      return {KERNEL##_BUFFERS(KERNEL_MEMBER_NAME)};                                                 \
    }                                                                                                \
  };
// clang-format on

#endif
#endif
