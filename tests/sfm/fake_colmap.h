// A COLMAP that is a shell script: it writes down how it was called, prints what the real one prints, and leaves models
// that the test has made. Each command can be made to behave otherwise.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>

#include "base/image/image.h"
#include "colmap/model_writer.h"
#include "sfm/colmap_runner.h"
#include "support/temp_folder.h"

namespace quor::test {

// Help of version 3, of version 4, and of a wrapper that prints nothing.
enum class FakeVersion { Three, Four, Mute };

inline gs::colmap::Model modelOf(const std::vector<std::string>& images) {
  gs::colmap::Model model;
  model.cameras[1] = {1, 1, 64, 48, {60, 60, 32, 24}};
  for (const std::string& name : images) {
    gs::colmap::Image image;
    image.id = static_cast<uint32_t>(model.images.size() + 1);
    image.cameraId = 1;
    image.name = name;
    model.images.push_back(image);
  }
  model.points.positions = {0, 0, 1, 0, 0, 2};
  model.points.colors = {1, 2, 3, 4, 5, 6};
  return model;
}

class FakeColmap {
 public:
  explicit FakeColmap(const std::filesystem::path& folder, FakeVersion version = FakeVersion::Three) : folder_(folder) {
    writeFile(executable(), kScript);
    ::chmod(executable().c_str(), 0755);
    if (version == FakeVersion::Mute) return;
    const bool four = version == FakeVersion::Four;
    writeFile(folder_ / "help", std::string(four ? "COLMAP 4.0.1 -- SfM\n" : "COLMAP 3.8 -- SfM\n") +
                                    "Available commands:\n  mapper\n" +
                                    (four ? "  global_mapper\n  view_graph_calibrator\n" : "  hierarchical_mapper\n"));
    const std::string extraction =
        four ? "--FeatureExtraction.use_gpu arg (=1)\n--FeatureExtraction.max_image_size arg\n"
               "--SiftExtraction.max_num_features arg\n"
             : "--SiftExtraction.use_gpu arg (=1)\n--SiftExtraction.max_image_size arg\n"
               "--SiftExtraction.max_num_features arg\n";
    writeFile(
        folder_ / "feature_extractor.help",
        "--ImageReader.single_camera_per_image arg (=0)\n--ImageReader.existing_camera_id arg (=-1)\n" + extraction);
    for (const char* matcher : {"exhaustive_matcher", "sequential_matcher", "vocab_tree_matcher"}) {
      writeFile(folder_ / (std::string(matcher) + ".help"),
                four ? "--FeatureMatching.use_gpu arg\n" : "--SiftMatching.use_gpu arg\n");
    }
    writeFile(folder_ / "mapper.help", "--Mapper.ba_global_points_ratio arg\n");
    writeFile(folder_ / "global_mapper.help", "--GlobalMapper.track_required_tracks_per_view arg\n");
    writeFile(folder_ / "image_undistorter.help", "--jpeg_qualities arg\n");
  }

  std::filesystem::path executable() const { return folder_ / "colmap"; }
  ToolLocation location() const { return {executable(), "settings"}; }

  // Shell lines that take the place of a command; $output, $image_path ... hold its options' values.
  void on(const std::string& command, const std::string& script) { writeFile(folder_ / (command + ".sh"), script); }
  void mapsTo(const std::string& number, const std::vector<std::string>& images) { mapsTo(number, modelOf(images)); }
  void mapsTo(const std::string& number, const gs::colmap::Model& model,
              const std::vector<gs::colmap::Observations>& observations = {}) {
    gs::colmap::writeModel(folder_ / "models" / number, model, observations, gs::colmap::Encoding::Binary);
  }

  // Every call but those for help, its words joined by blanks.
  std::vector<std::string> calls() const {
    std::vector<std::string> lines;
    std::error_code ignored;
    if (!std::filesystem::exists(folder_ / "calls", ignored)) return lines;
    std::istringstream text(readFile(folder_ / "calls"));
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }
  // The calls of one command, joined by line feeds.
  std::string call(const std::string& command) const {
    std::string found;
    for (const std::string& line : calls()) {
      if (line.starts_with(command + " ")) found += line + "\n";
    }
    return found;
  }

 private:
  static constexpr const char* kScript = R"sh(#!/bin/sh
here=$(dirname "$0")
[ "$1" = help ] && { cat "$here/help" 2>/dev/null; exit 0; }
[ "$2" = -h ] && { cat "$here/$1.help" 2>/dev/null; exit 0; }
command=$1; shift
echo "$command $* [$QT_QPA_PLATFORM $QT_PLUGIN_PATH]" >> "$here/calls"
while [ $# -gt 1 ]; do
  case $1 in
    --database_path) database=$2;; --image_path) images=$2;; --output_path) output=$2;; --input_path) input=$2;;
    --image_list_path | --match_list_path) list=$2;; --input_path1) input=$2;;
  esac
  shift
done
[ -f "$here/$command.sh" ] && { . "$here/$command.sh"; exit 0; }
case $command in
  feature_extractor) touch "$database"; echo "Processed file [1/2]"; echo "Processed file [2/2]";;
  exhaustive_matcher) echo "Matching block [1/2, 1/2]"; echo "Matching block [2/2, 2/2]";;
  mapper | global_mapper) echo "Registering image #7 (3)"; cp -r "$here"/models/* "$output";;
  image_undistorter)
    mkdir -p "$output/stereo"; touch "$output/run-colmap-geometric.sh" "$output/stereo/run-colmap-photometric.sh"
    cp -r "$input" "$output/sparse"; cp -r "$images" "$output/images"; echo "Undistorting image [2/2]";;
esac
)sh";

  const std::filesystem::path folder_;
};

}  // namespace quor::test
