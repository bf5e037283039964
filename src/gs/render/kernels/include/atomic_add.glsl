// Adding a float to a buffer that many invocations add to: natively, or by compare-and-swap on the float's bits.
// Include before anything that is not an extension; needs NATIVE_ATOMIC.
#if NATIVE_ATOMIC
#extension GL_EXT_shader_atomic_float : require
#define ACCUMULATOR float
#define DEFINE_ATOMIC_ADD(name, data) \
  void name(uint index, float value) { atomicAdd(data[index], value); }
#else
#define ACCUMULATOR uint
#define DEFINE_ATOMIC_ADD(name, data)                                                           \
  void name(uint index, float value) {                                                          \
    uint seen = data[index];                                                                    \
    for (;;) {                                                                                  \
      const uint before = atomicCompSwap(data[index], seen, floatBitsToUint(uintBitsToFloat(seen) + value)); \
      if (before == seen) break;                                                                \
      seen = before;                                                                            \
    }                                                                                           \
  }
#endif
