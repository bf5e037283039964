#include "sample_capture/truth_table.h"

#include "base/files/atomic_file.h"
#include "base/text/text.h"

namespace quor::sample {

void writeTruthTable(const std::filesystem::path& path, const std::vector<std::vector<Pose>>& lenses,
                     int framesPerSecond) {
  AtomicFile file(path);
  file.stream() << "frame,time,lens,qw,qx,qy,qz,x,y,z\n";
  for (size_t i = 0; i < lenses.front().size(); ++i) {
    for (size_t lens = 0; lens < lenses.size(); ++lens) {
      const Pose& pose = lenses[lens][i];
      const auto [qw, qx, qy, qz] = quaternionOf(pose.rotation);
      const auto [x, y, z] = pose.centre();
      file.stream() << formatText("%zu,%.6f,%zu,%.12g,%.12g,%.12g,%.12g,%.12g,%.12g,%.12g\n", i + 1,
                                  static_cast<double>(i) / framesPerSecond, lens + 1, qw, qx, qy, qz, x, y, z);
    }
  }
  file.commit();
}

}  // namespace quor::sample
