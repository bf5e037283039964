#include "around_report.h"

#include <cstdio>
#include <stdexcept>

namespace quor::bench {
namespace {

constexpr int kStepsBetweenPasses = 100;

}  // namespace

void print(const Report& report) {
  const double step = report.rows[0].wall.at(0);
  std::printf("%u splats, degree %d, %zu photographs of %dx%d\n", report.size.splats, report.size.degree,
              report.photographs, report.size.width, report.size.height);
  std::printf("  %-26s %9s %9s %9s %8s %8s %9s %7s %10s\n", "", "least ms", "median", "processor", "MB", "MB/s",
              "floor ms", "times", "100 steps");
  for (const Row& row : report.rows) {
    const double least = row.wall.at(0);
    std::printf("  %-26s %9.2f %9.2f %9.2f", row.name.c_str(), least, row.wall.at(0.5), row.processor.at(0));
    if (row.bytes > 0) {
      std::printf(" %8.2f %8.0f %9.2f %7.1f", row.bytes * 1e-6, row.bytes * 1e-3 / least, row.floor, least / row.floor);
    } else {
      std::printf(" %35s", "");
    }
    std::printf(" %9.2f%%\n", 100 * least / (kStepsBetweenPasses * step));
  }
  std::fflush(stdout);
}

void writeJson(const char* path, const gs::VulkanContext& context, const Peaks& peaks,
               const std::vector<Report>& reports) {
  std::FILE* file = std::fopen(path, "w");
  if (file == nullptr) throw std::runtime_error(std::string("Cannot write ") + path);
  std::fprintf(file, "{\n \"device\": \"%s\", \"copyGBs\": %.2f, \"peakGmads\": %.2f,\n \"sizes\": {",
               context.info().name.c_str(), peaks.bytes * 1e-6, peaks.multiplyAdds * 1e-6);
  for (const Report& report : reports) {
    std::fprintf(file, "%s\n  \"%u splats\": {\"rows\": {", &report == reports.data() ? "" : ",", report.size.splats);
    for (const Row& row : report.rows) {
      std::fprintf(file, "%s\n    \"%s\": ", &row == report.rows.data() ? "" : ",", row.name.c_str());
      writeSamples(file, row.wall);
      std::fprintf(file, ",\n    \"%s, processor\": ", row.name.c_str());
      writeSamples(file, row.processor);
    }
    std::fprintf(file, "}}");
  }
  std::fprintf(file, "\n }\n}\n");
  std::fclose(file);
}

}  // namespace quor::bench
