// Repeated measurements of one thing, and how the JSON files that scripts/bench_compare reads hold them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <utility>
#include <vector>

namespace quor::bench {

struct Samples {
  std::vector<double> sorted;
  explicit Samples(std::vector<double> values) : sorted(std::move(values)) { std::sort(sorted.begin(), sorted.end()); }
  double at(double share) const {
    return sorted[static_cast<size_t>(share * static_cast<double>(sorted.size() - 1) + 0.5)];
  }
};

inline void writeSamples(std::FILE* file, const Samples& s) {
  std::fprintf(file, "{\"least\": %.4f, \"q1\": %.4f, \"median\": %.4f, \"q3\": %.4f, \"runs\": %zu}", s.at(0),
               s.at(0.25), s.at(0.5), s.at(0.75), s.sorted.size());
}

}  // namespace quor::bench
