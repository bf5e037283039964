#include "ui/models/settings/settings_table.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace quor::ui {

namespace {

using Group = SettingGroup;
using Ingest = IngestSettings;
using Sparse = SparseSettings;
using Training = TrainingSettings;

template <class T>
auto& recordOf(auto& project, T Ingest::*) {
  return project.ingest;
}
template <class T>
auto& recordOf(auto& project, T Sparse::*) {
  return project.sparse;
}
template <class T>
auto& recordOf(auto& project, T Training::*) {
  return project.training;
}

template <auto Field>
auto& of(Project& project) {
  return recordOf(project, Field).*Field;
}

template <auto Field>
RealSetting real(double least, double most, const char* format) {
  return {[](const Project& p) { return static_cast<double>(recordOf(p, Field).*Field); },
          [](Project& p, double value) { of<Field>(p) = static_cast<std::decay_t<decltype(of<Field>(p))>>(value); },
          least, most, format};
}

template <auto Field>
ChoiceSetting choice(std::vector<const char*> words) {
  return {[](const Project& p) { return static_cast<int>(recordOf(p, Field).*Field); },
          [](Project& p, int value) { of<Field>(p) = static_cast<std::decay_t<decltype(of<Field>(p))>>(value); },
          std::move(words)};
}

std::vector<Setting> frameSettings() {
  return {
      {Group::Frames, "targetFrameCount", "Frames from each video",
       "How many pictures are taken from each video, spread evenly over it. More than a few hundred make the camera "
       "solve long. Photographs are all used, however many there are.",
       IntSetting{of<&Ingest::targetFrameCount>, 10, 2000}},
      {Group::Frames, "maxDimension", "Longest edge of frames",
       "Frames and photographs larger than this many pixels are made smaller. What is lost here cannot come back in "
       "training.",
       IntSetting{of<&Ingest::maxDimension>, 256, 8192}},
      {Group::Frames, "blurRejection", "Leave out blurry frames",
       "Frames of a video that are clearly less sharp than the others are not used.",
       SwitchSetting{of<&Ingest::blurRejection>}},
      {Group::Frames, "blurThreshold", "Sharpness that a frame needs",
       "As a share of the usual sharpness of the video: at 0.55 frames go that are only about half as sharp. Higher is "
       "stricter.",
       real<&Ingest::blurThreshold>(0, 1, "%.2f")},
      {Group::Frames, "jpegQuality", "Compression of frames",
       "2 is the best picture and the largest file; each step up compresses more.",
       IntSetting{of<&Ingest::jpegQuality>, 2, 31}},

      {Group::Sphere, "viewsPerFrame", "Views around each sphere",
       "How many flat pictures are cut from every frame of a 360° video, side by side around the horizon.",
       IntSetting{of<&Ingest::viewsPerFrame>, 3, 16}},
      {Group::Sphere, "fieldOfView", "Angle of each view",
       "In degrees. Neighbouring views should overlap: 6 views need more than 60°.",
       real<&Ingest::fieldOfView>(30, 140, "%.0f°")},
      {Group::Sphere, "viewResolution", "Size of each view", "Pixels along each edge of a flat view.",
       IntSetting{of<&Ingest::viewResolution>, 256, 4096}},
      {Group::Sphere, "includePoles", "Views up and down",
       "Adds one view straight up and one straight down. The one below usually shows the tripod or the operator.",
       SwitchSetting{of<&Ingest::includePoles>}},
      {Group::Sphere, "pitchOffset", "Tilt of the views",
       "In degrees, upwards when positive: keeps the tripod and the operator out of the pictures.",
       real<&Ingest::pitchOffset>(-60, 60, "%.0f°")},

      {Group::Fisheye, "fisheyeFieldOfView", "Angle of one lens",
       "In degrees, from rim to rim. 190 fits most cameras with two lenses; the camera solve refines it.",
       real<&Ingest::fisheyeFieldOfView>(90, 280, "%.0f°")},
      {Group::Fisheye, "fisheyeMaskBelow", "Ignore below the horizon",
       "The camera solve takes no notice of what lies this many degrees or more below the horizon; 45 to 60 hides the "
       "stick and most of the operator. 0 is off.",
       real<&Ingest::fisheyeMaskBelow>(0, 90, "%.0f°")},
      {Group::Fisheye, "fisheyeCropBottom", "Cut off the bottom",
       "This share of each frame's height is cut away below before training. 0 is off.",
       real<&Ingest::fisheyeCropBottom>(0, 0.9, "%.2f")},
      {Group::Fisheye, "fisheyeEdgeMargin", "Ignore the rim of the lens",
       "The camera solve takes no notice of this share of the lens at its rim, where pictures are soft; 0.03 to 0.05 "
       "is "
       "usual. 0 is off.",
       real<&Ingest::fisheyeEdgeMargin>(0, 0.9, "%.2f")},
      {Group::Fisheye, "fisheyeCropEdges", "Cut off all edges",
       "This share of each frame is cut away on every side before training. 0 is off.",
       real<&Ingest::fisheyeCropEdges>(0, 0.45, "%.2f")},
  };
}

std::vector<Setting> cameraSettings() {
  return {
      {Group::Cameras, "matcher", "Which pictures are compared",
       "Every pair finds the most and suits photographs; its time grows with the square of their number. Neighbours in "
       "order suits video. A vocabulary tree finds likely pairs in large sets and needs a file.",
       choice<&Sparse::matcher>({"Every pair", "Neighbours in order", "Vocabulary tree"})},
      {Group::Cameras, "sequentialOverlap", "Neighbours compared",
       "How many pictures before and after it each one is compared with when neighbours in order are compared.",
       IntSetting{of<&Sparse::sequentialOverlap>, 1, 100}},
      {Group::Cameras, "vocabTreePath", "Vocabulary tree file",
       "The file that COLMAP offers for download as a vocabulary tree. Needed with that way of comparing only.",
       TextSetting{of<&Sparse::vocabTreePath>, {}}},
      {Group::Cameras, "cameraModel", "Camera model",
       "How COLMAP describes the lens. OPENCV suits phones and cameras, PINHOLE pictures without distortion, "
       "OPENCV_FISHEYE fisheye lenses.",
       TextSetting{of<&Sparse::cameraModel>,
                   {"OPENCV", "PINHOLE", "SIMPLE_RADIAL", "RADIAL", "FULL_OPENCV", "OPENCV_FISHEYE"}}},
      {Group::Cameras, "singleCamera", "One camera took all pictures",
       "All pictures of one size share one lens, which makes the solve steadier. Turn it off when the zoom or the "
       "camera changed between pictures.",
       SwitchSetting{of<&Sparse::singleCamera>}},
      {Group::Cameras, "maxImageSize", "Longest edge for features",
       "COLMAP looks for details in pictures of at most this many pixels.",
       IntSetting{of<&Sparse::maxImageSize>, 400, 8192}},
      {Group::Cameras, "maxFeatures", "Details in each picture",
       "The most details that are looked for in a picture. More help with difficult captures and take longer.",
       IntSetting{of<&Sparse::maxFeatures>, 500, 65536}},
      {Group::Cameras, "useGPU", "Find details on the GPU",
       "Lets COLMAP use the graphics card to find details. Works only where COLMAP was built for it.",
       SwitchSetting{of<&Sparse::useGPU>}},
      {Group::Cameras, "gpuMatching", "Compare pictures on the GPU",
       "Compares pictures on the graphics card instead of with COLMAP, which is much faster.",
       SwitchSetting{of<&Sparse::gpuMatching>}},
      {Group::Cameras, "mapper", "How cameras are placed",
       "One by one is the tried way. All at once is faster for large sets, where the COLMAP that is installed can do "
       "it.",
       choice<&Sparse::mapper>({"One by one", "All at once"})},
  };
}

std::vector<Setting> trainingSettings() {
  return {
      {Group::Training, "technique", "Technique",
       "Growing adds splats where detail is missing and takes away what is not seen. A fixed budget keeps a steady "
       "number of splats and moves them to where they are needed: smaller files, less memory.",
       choice<&Training::technique>({"Growing (Vanilla)", "Fixed budget (MCMC)"})},
      {Group::Training, "iterations", "Steps",
       "Each step compares the scene with one picture and improves it. 7,000 give a good scene, 15,000 to 30,000 a "
       "final one.",
       IntSetting{of<&Training::iterations>, 1, 200000}},
      {Group::Training, "trainingResolution", "Longest edge in training",
       "Pictures are trained on at this many pixels. More shows finer detail and takes more time and memory.",
       IntSetting{of<&Training::trainingResolution>, 0, 8192, "the pictures' own size"}},
      {Group::Training, "splatBudget", "Most splats",
       "The scene has no more splats than this. A lower number makes a smaller file and needs less GPU memory.",
       CountSetting{of<&Training::splatBudget>, 50000000, "automatic"}},
      {Group::Training, "shDegree", "Reflections",
       "How far the colour of a splat may change with the direction of view: 0 not at all, 3 most.",
       IntSetting{of<&Training::shDegree>, 0, 3}},
      {Group::Training, "numDownscales", "Coarse to fine",
       "Training starts on pictures halved this many times, which is faster and steadier.",
       IntSetting{of<&Training::numDownscales>, 0, 8}},
      {Group::Training, "ssimWeight", "Weight of structure",
       "What counts as a good picture: 0 single pixels only, 1 structure only.",
       real<&Training::ssimWeight>(0, 1, "%.2f")},
      {Group::Training, "refineEvery", "Steps between refinements",
       "After this many steps splats are added, moved or removed.", IntSetting{of<&Training::refineEvery>, 10, 10000}},
      {Group::Training, "evalMode", "Keep pictures back to score the scene",
       "Some pictures are not trained on; how well the scene predicts them is its score.",
       SwitchSetting{of<&Training::evalMode>}},
      {Group::Training, "testEvery", "Every how many-th is kept back", "8 keeps back one picture in eight.",
       IntSetting{of<&Training::testEvery>, 2, 1000}},
      {Group::Training, "exportPLY", "Write scene.ply", "The scene in full, for this viewer and most others.",
       SwitchSetting{of<&Training::exportPLY>}},
      {Group::Training, "exportSplat", "Write scene.splat too",
       "A small file for viewers on the web, without reflections.", SwitchSetting{of<&Training::exportSplat>}},
      {Group::Training, "background", "Background", "The colour behind the splats.",
       ColourSetting{of<&Training::background>}},
      {Group::Training, "visualizerEnabled", "Show the scene while it trains", "Off leaves all of the GPU to training.",
       SwitchSetting{of<&Training::visualizerEnabled>}},
  };
}

bool hasKind(const Project& project, InputKind kind) {
  return std::ranges::any_of(project.inputs, [&](const InputSource& input) { return input.kind == kind; });
}

struct Clamp {
  Project& project;

  void operator()(const IntSetting& s) const { s.of(project) = std::clamp(s.of(project), s.least, s.most); }
  void operator()(const CountSetting& s) const { s.of(project) = std::min(s.of(project), s.most); }
  void operator()(const RealSetting& s) const {
    const double value = s.get(project);
    s.set(project, std::isfinite(value) ? std::clamp(value, s.least, s.most) : s.least);
  }
  void operator()(const SwitchSetting&) const {}
  void operator()(const ChoiceSetting& s) const {
    s.set(project, std::clamp(s.get(project), 0, static_cast<int>(s.words.size()) - 1));
  }
  void operator()(const TextSetting&) const {}
  void operator()(const ColourSetting& s) const {
    for (float& channel : s.of(project)) channel = std::isfinite(channel) ? std::clamp(channel, 0.0F, 1.0F) : 0.0F;
  }
};

}  // namespace

const char* groupTitle(SettingGroup group) {
  switch (group) {
    case Group::Frames:
      return "Frames";
    case Group::Sphere:
      return "360° video";
    case Group::Fisheye:
      return "Dual-fisheye video";
    case Group::Cameras:
      return "Camera solve";
    case Group::Training:
      break;
  }
  return "Training";
}

bool groupApplies(SettingGroup group, const Project& project) {
  switch (group) {
    case Group::Sphere:
      return hasKind(project, InputKind::Video360);
    case Group::Fisheye:
      return hasKind(project, InputKind::DualFisheye);
    case Group::Frames:
    case Group::Cameras:
      return project.externalDataset.empty();
    case Group::Training:
      break;
  }
  return true;
}

const std::vector<Setting>& settingsTable() {
  static const std::vector<Setting> table = [] {
    std::vector<Setting> all = frameSettings();
    for (const auto& more : {cameraSettings(), trainingSettings()}) all.insert(all.end(), more.begin(), more.end());
    return all;
  }();
  return table;
}

const Setting& settingNamed(const std::string& key) {
  const auto& table = settingsTable();
  const auto found = std::ranges::find_if(table, [&](const Setting& setting) { return key == setting.key; });
  if (found == table.end()) throw std::out_of_range("no setting " + key);
  return *found;
}

Project settingsOf(const Project& project) {
  Project settings;
  assignSettings(settings, project);
  settings.inputs = project.inputs;
  settings.externalDataset = project.externalDataset;
  return settings;
}

void assignSettings(Project& to, const Project& from) {
  to.ingest = from.ingest;
  to.sparse = from.sparse;
  to.training = from.training;
}

void clampSettings(Project& project) {
  for (const Setting& setting : settingsTable()) std::visit(Clamp{project}, setting.value);
}

}  // namespace quor::ui
