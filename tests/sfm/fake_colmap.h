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

// Help of version 3.8 and of later ones as far as this program goes, and of a wrapper that prints nothing.
enum class FakeVersion { Three, ThreeTwelve, ThreeThirteen, Four, Mute };

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
    const bool twelve = version != FakeVersion::Three, thirteen = twelve && version != FakeVersion::ThreeTwelve;
    const bool four = version == FakeVersion::Four;
    const char* names[] = {"3.8", "3.12.6", "3.13.0", "4.0.1"};
    writeFile(folder_ / "help", std::string("COLMAP ") + names[static_cast<int>(version)] +
                                    " -- SfM\nAvailable commands:\n  mapper\n" +
                                    (four ? "  global_mapper\n  view_graph_calibrator\n" : "  hierarchical_mapper\n"));
    const std::string extraction = thirteen ? "FeatureExtraction." : "SiftExtraction.";
    const std::string matching = thirteen ? "FeatureMatching." : "SiftMatching.";
    help("feature_extractor",
         {"ImageReader.single_camera", "ImageReader.single_camera_per_folder", "ImageReader.single_camera_per_image",
          "ImageReader.existing_camera_id", "ImageReader.camera_model", "ImageReader.camera_params",
          "ImageReader.camera_mask_path", extraction + "use_gpu", extraction + "max_image_size",
          "SiftExtraction.max_num_features", "SiftExtraction.peak_threshold", "SiftExtraction.edge_threshold"});
    for (const char* matcher : {"exhaustive_matcher", "sequential_matcher", "vocab_tree_matcher", "matches_importer"}) {
      help(matcher, {matching + "use_gpu", matching + "guided_matching", "ExhaustiveMatching.block_size",
                     "SequentialMatching.overlap", "SequentialMatching.loop_detection",
                     "SequentialMatching.vocab_tree_path", "VocabTreeMatching.vocab_tree_path"});
    }
    help("mapper",
         {twelve ? "Mapper.ba_global_frames_ratio" : "Mapper.ba_global_images_ratio", "Mapper.ba_global_points_ratio",
          "Mapper.ba_refine_focal_length", "Mapper.ba_refine_principal_point", "Mapper.ba_refine_extra_params",
          "Mapper.abs_pose_min_num_inliers", "Mapper.abs_pose_min_inlier_ratio", "Mapper.init_min_num_inliers",
          "Mapper.init_min_tri_angle", "Mapper.init_image_id1", "Mapper.init_image_id2"});
    help("global_mapper", {"GlobalMapper.track_required_tracks_per_view"});
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
  void help(const std::string& command, const std::vector<std::string>& options) const {
    std::string text;
    for (const std::string& option : options) text += "  --" + option + " arg\n";
    writeFile(folder_ / (command + ".help"), text);
  }

  static constexpr const char* kScript = R"sh(#!/bin/sh
here=$(dirname "$0")
[ "$1" = help ] && { cat "$here/help" 2>/dev/null; exit 0; }
[ "$2" = -h ] && { cat "$here/$1.help" 2>/dev/null; exit 0; }
command=$1; shift
echo "$command $* [$QT_QPA_PLATFORM $QT_PLUGIN_PATH]" >> "$here/calls"
while [ $# -gt 1 ]; do
  case $1 in
    --*.*) [ ! -f "$here/$command.help" ] || grep -q -- " $1 " "$here/$command.help" ||
      { echo "ERROR: unrecognised option '$1'"; exit 1; };;
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
