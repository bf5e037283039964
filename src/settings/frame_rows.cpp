#include "settings/table_rows.h"

namespace quor {

namespace {

using Group = SettingGroup;
using Ingest = IngestSettings;

constexpr int kMaxFrames = 100000;
constexpr double kMaxShare = 0.9;
// The camera solve keeps a quarter of each side of the frames.
constexpr double kMaxBottom = 0.75, kMaxEdges = 0.375;

Setting frameRow(Setting row) {
  row.stage = SettingStage::Frames;
  row.places = kWithMedia;
  return row;
}

// Masks and crops are made when cameras are solved.
Setting solveRow(Setting row) {
  row = frameRow(std::move(row));
  row.stage = SettingStage::Cameras;
  return row;
}

std::vector<Setting> videoRows() {
  return {
      frameRow({.key = "targetFrameCount",
                .group = Group::Frames,
                .value = WholeSetting{memberOf<&Ingest::targetFrameCount>, 1, kMaxFrames},
                .options = {{"--frames", "N", "target frame count for each video (default {default})"}},
                .argument = "frames",
                .description = "Frames to take from each video, before blurred ones are dropped (default {default})",
                .label = "Frames from each video",
                .meaning = "How many pictures are taken from each video, spread evenly over it. More than a few "
                           "hundred make the camera solve long. Photographs are all used, however many there are."}),
      frameRow({.key = "maxDimension",
                .group = Group::Frames,
                .value = WholeSetting{memberOf<&Ingest::maxDimension>, 1, kMaxImageEdge},
                .options = {{"--max-dimension", "N", "longest edge of extracted frames in pixels (default {default})"}},
                .argument = "max_dimension",
                .description = "Longest edge of the frames in pixels (default {default})",
                .label = "Longest edge of frames",
                .meaning = "Frames and photographs larger than this many pixels are made smaller. What is lost here "
                           "cannot come back in training."}),
      frameRow({.key = "blurRejection",
                .group = Group::Frames,
                .value = SwitchSetting{memberOf<&Ingest::blurRejection>},
                .label = "Leave out blurry frames",
                .meaning = "Frames of a video that are clearly less sharp than the others are not used."}),
      frameRow({.key = "blurThreshold",
                .group = Group::Frames,
                .value = real<&Ingest::blurThreshold>(0, 1, "%.2f", "a number"),
                .label = "Sharpness that a frame needs",
                .meaning = "As a share of the usual sharpness of the video: at {default} frames go that are only about "
                           "half as sharp. Higher is stricter."}),
      frameRow({.key = "jpegQuality",
                .group = Group::Frames,
                .value = WholeSetting{memberOf<&Ingest::jpegQuality>, 2, 31},
                .label = "Compression of frames",
                .meaning = "{least} is the best picture and the largest file; each step up compresses more."}),
  };
}

std::vector<Setting> sphereRows() {
  return {
      frameRow({.key = "viewsPerFrame",
                .group = Group::Sphere,
                .value = WholeSetting{memberOf<&Ingest::viewsPerFrame>, 3, 16},
                .label = "Views around each sphere",
                .meaning = "How many flat pictures are cut from every frame of a 360° video, side by side around the "
                           "horizon."}),
      frameRow({.key = "fieldOfView",
                .group = Group::Sphere,
                .value = real<&Ingest::fieldOfView>(30, 140, "%.0f°", "an angle", " degrees"),
                .label = "Angle of each view",
                .meaning = "In degrees. Neighbouring views should overlap: 6 views need more than 60°."}),
      frameRow({.key = "viewResolution",
                .group = Group::Sphere,
                .value = WholeSetting{memberOf<&Ingest::viewResolution>, 256, 4096},
                .label = "Size of each view",
                .meaning = "Pixels along each edge of a flat view."}),
      frameRow({.key = "viewsFollowSphere",
                .group = Group::Sphere,
                .value = SwitchSetting{memberOf<&Ingest::viewsFollowSphere>},
                .label = "Views follow the sphere",
                .meaning = "Makes the views smaller where the video holds less detail than their size; views that only "
                           "enlarge it are blurred, and cameras cannot be placed. A size other than the default "
                           "stays."}),
      frameRow({.key = "includePoles",
                .group = Group::Sphere,
                .value = SwitchSetting{memberOf<&Ingest::includePoles>},
                .label = "Views up and down",
                .meaning = "Adds one view straight up and one straight down. The one below usually shows the tripod or "
                           "the operator."}),
      frameRow({.key = "pitchOffset",
                .group = Group::Sphere,
                .value = real<&Ingest::pitchOffset>(-60, 60, "%.0f°", "an angle", " degrees"),
                .label = "Tilt of the views",
                .meaning = "In degrees, upwards when positive: keeps the tripod and the operator out of the "
                           "pictures."}),
  };
}

std::vector<Setting> fisheyeRows() {
  return {
      frameRow({.key = "fisheyeFieldOfView",
                .group = Group::Fisheye,
                .value = real<&Ingest::fisheyeFieldOfView>(10, 360, "%.0f°", "an angle", " degrees"),
                .options = {{"--fisheye-fov", "DEG", "dual-fisheye: one lens's diagonal angle (default {default})"}},
                .argument = "fisheye_fov",
                .description = "Dual-fisheye video: one lens's diagonal angle in degrees (default {default})",
                .label = "Angle of one lens",
                .meaning = "In degrees, from rim to rim. {default} fits most cameras with two lenses; the camera solve "
                           "refines it."}),
      solveRow({.key = "fisheyeMaskBelow",
                .group = Group::Fisheye,
                .value = real<&Ingest::fisheyeMaskBelow>(0, 90, "%.0f°", "an angle", " degrees"),
                .options = {{"--hide-below", "DEG",
                             "dual-fisheye: mask features that far below the horizon (default {default}: off)"}},
                .argument = "hide_below",
                .description =
                    "Dual-fisheye video: ignore what lies this many degrees or more below the horizon when cameras are "
                    "solved, such as the stick, the operator or the aircraft (default {default}: nothing; 45 to 60 is "
                    "usual)",
                .label = "Ignore below the horizon",
                .meaning = "The camera solve takes no notice of what lies this many degrees or more below the horizon; "
                           "45 to 60 hides the stick and most of the operator. 0 is off."}),
      solveRow({.key = "fisheyeCropBottom",
                .group = Group::Fisheye,
                .value = real<&Ingest::fisheyeCropBottom>(0, kMaxBottom, "%.2f", "a fraction"),
                .options = {{"--crop-bottom", "F",
                             "dual-fisheye: fraction cropped from the bottom of the frames (default {default})"}},
                .argument = "crop_bottom",
                .description = "Dual-fisheye video: fraction cut from the bottom of the undistorted frames before "
                               "training (default {default})",
                .label = "Cut off the bottom",
                .meaning = "This share of each frame's height is cut away below before training. 0 is off."}),
      solveRow({.key = "fisheyeEdgeMargin",
                .group = Group::Fisheye,
                .value = real<&Ingest::fisheyeEdgeMargin>(0, kMaxShare, "%.2f", "a fraction"),
                .options = {{"--trim-edges", "F",
                             "dual-fisheye: fraction of the lens rim masked from features (default {default})"}},
                .argument = "trim_edges",
                .description = "Dual-fisheye video: fraction of the lens rim to ignore when cameras are solved "
                               "(default {default}; 0.03 to 0.1 for a soft rim or an aircraft in it)",
                .label = "Ignore the rim of the lens",
                .meaning = "The camera solve takes no notice of this share of the lens at its rim, where pictures are "
                           "soft; 0.03 to 0.05 is usual. 0 is off."}),
      solveRow({.key = "fisheyeCropEdges",
                .group = Group::Fisheye,
                .value = real<&Ingest::fisheyeCropEdges>(0, kMaxEdges, "%.2f", "a fraction"),
                .options = {{"--crop-edges", "F",
                             "dual-fisheye: fraction cropped from every side of the frames (default {default})"}},
                .argument = "crop_edges",
                .description = "Dual-fisheye video: fraction cut from every side of the undistorted frames before "
                               "training (default {default})",
                .label = "Cut off all edges",
                .meaning = "This share of each frame is cut away on every side before training. 0 is off."}),
  };
}

}  // namespace

std::vector<Setting> frameRows() {
  std::vector<Setting> rows = videoRows();
  for (auto& more : {sphereRows(), fisheyeRows()}) rows.insert(rows.end(), more.begin(), more.end());
  return rows;
}

}  // namespace quor
