// SplitMix64 (Steele, Lea, Flood 2014, "Fast splittable pseudorandom number generators"): the trainer's one source of
// random numbers. Its whole state is one word, so a checkpoint can hold it and a resumed run continues the sequence.
#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>

namespace quor {

class SplitMix64 {
 public:
  // The salt keeps seed 0, the default, from being the all-zero state.
  static constexpr uint64_t kSeedSalt = 0xa5a55a5aULL;

  explicit SplitMix64(uint64_t state) : state_(state) {}
  static SplitMix64 fromSeed(uint64_t seed) { return SplitMix64(seed ^ kSeedSalt); }

  uint64_t state() const { return state_; }

  uint64_t next() {
    state_ += 0x9e3779b97f4a7c15ULL;
    uint64_t z = state_;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }

  // Uniform in 0 .. range - 1 (range > 0).
  uint64_t below(uint64_t range) { return next() % range; }

  // Uniform in [0, 1), 53 bits.
  double uniform() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }

  // Standard normal, Box-Muller; takes two uniforms a call.
  double normal() {
    const double u = std::fmax(uniform(), 1e-300);
    const double v = uniform();
    return std::sqrt(-2.0 * std::log(u)) * std::cos(2.0 * std::numbers::pi * v);
  }

 private:
  uint64_t state_;
};

}  // namespace quor
