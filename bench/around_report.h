// The table of bench_around and its JSON file, which scripts/bench_compare reads.
#pragma once

#include <string>
#include <vector>

#include "bench_common.h"
#include "bench_peaks.h"
#include "samples.h"

namespace quor::bench {

struct Row {
  std::string name;
  Samples wall, processor;
  double bytes;  // 0: not counted
  double floor;  // milliseconds, least; 0: none is obvious
};

struct Report {
  Size size;
  size_t photographs;     // of that size
  std::vector<Row> rows;  // of which the first is the step
};

void print(const Report& report);

void writeJson(const char* path, const gs::VulkanContext& context, const Peaks& peaks,
               const std::vector<Report>& reports);

}  // namespace quor::bench
