#include "settings/table_rows.h"

namespace quor {

namespace {

using Sparse = SparseSettings;

Setting cameraRow(Setting row) {
  row.group = SettingGroup::Cameras;
  row.stage = SettingStage::Cameras;
  row.places = kWithMedia;
  return row;
}

ChoiceSetting matcherChoice() {
  return choice<&Sparse::matcher>({{"exhaustive", "Every pair"},
                                   {"sequential", "Neighbours in order"},
                                   {"vocab_tree", "Vocabulary tree", {"vocabTree", "vocab"}}},
                                  "unknown matcher '{}'");
}

// A file may hold any word: all but "global" are the tried way.
ChoiceSetting mapperChoice() {
  ChoiceSetting mapper = choice<&Sparse::mapper>({{"incremental", "One by one"}, {"global", "All at once"}},
                                                 "--mapper takes incremental or global");
  mapper.unknownIsFirst = true;
  return mapper;
}

std::vector<Setting> matchingRows() {
  return {
      cameraRow({.key = "matcher",
                 .value = matcherChoice(),
                 .options = {{"--matcher", "NAME",
                              "exhaustive, sequential or vocab_tree\n"
                              "(default: exhaustive for photos, sequential with any video)"}},
                 .argument = "matcher",
                 .description = "Which frames are compared: all with all, neighbours in time, or by a vocabulary tree "
                                "(default: exhaustive for photographs, sequential with any video)",
                 .label = "Which pictures are compared",
                 .meaning = "Every pair finds the most and suits photographs; its time grows with the square of their "
                            "number. Neighbours in order suits video. A vocabulary tree finds likely pairs in large "
                            "sets and needs a file."}),
      cameraRow({.key = "pairs",
                 .value = choice<&Sparse::pairs>({{"all", "All"}, {"likely", "Those that look alike"}},
                                                 "--pairs takes all or likely"),
                 .options = {{"--pairs", "NAME",
                              "likely (new projects): of more than 150 photos match those that\n"
                              "look alike or were taken close together; or all"}},
                 .argument = "pairs",
                 .description = "Which pairs are compared where every pair would be: all, or likely: of more than 150 "
                                "photographs those that look alike or were taken close together (the default of new "
                                "projects)",
                 .label = "Pairs of many pictures",
                 .meaning = "Of more than 150 pictures, comparing those that look alike, follow one another or were "
                            "taken close together finds nearly as much as comparing all, in a fraction of the time."}),
      cameraRow({.key = "sequentialOverlap",
                 .value = WholeSetting{memberOf<&Sparse::sequentialOverlap>, 1, 100},
                 .label = "Neighbours compared",
                 .meaning = "How many pictures before and after it each one is compared with when neighbours in order "
                            "are compared."}),
      cameraRow({.key = "vocabTreePath",
                 .value = TextSetting{memberOf<&Sparse::vocabTreePath>, {}},
                 .label = "Vocabulary tree file",
                 .meaning = "The file that COLMAP offers for download as a vocabulary tree. Needed with that way of "
                            "comparing only."}),
  };
}

std::vector<Setting> lensRows() {
  const std::vector<const char*> models = {"OPENCV", "PINHOLE",     "SIMPLE_RADIAL",
                                           "RADIAL", "FULL_OPENCV", "OPENCV_FISHEYE"};
  return {
      cameraRow({.key = "cameraModel",
                 .value = TextSetting{memberOf<&Sparse::cameraModel>, models},
                 .options = {{"--camera-model", "NAME",
                              "COLMAP camera model (default {default}; PINHOLE or OPENCV_FISHEYE by kind of video)"}},
                 .argument = "camera_model",
                 .description = "COLMAP camera model, in capitals, such as OPENCV, SIMPLE_RADIAL, PINHOLE or "
                                "OPENCV_FISHEYE (chosen by the kind of media when left out)",
                 .label = "Camera model",
                 .meaning = "How COLMAP describes the lens. OPENCV suits phones and cameras, PINHOLE pictures without "
                            "distortion, OPENCV_FISHEYE fisheye lenses."}),
      cameraRow({.key = "singleCamera",
                 .value = SwitchSetting{memberOf<&Sparse::singleCamera>},
                 .label = "One camera took all pictures",
                 .meaning = "All pictures of one camera and size share one lens, which makes the solve steadier. Turn "
                            "it off when the zoom changed between pictures: then every picture gets a lens of its own "
                            "or, with several sources, every source does."}),
  };
}

std::vector<Setting> featureRows() {
  return {
      cameraRow({.key = "maxImageSize",
                 .value = WholeSetting{memberOf<&Sparse::maxImageSize>, 400, 8192},
                 .label = "Longest edge for features",
                 .meaning = "COLMAP looks for details in pictures of at most this many pixels."}),
      cameraRow({.key = "maxFeatures",
                 .value = WholeSetting{memberOf<&Sparse::maxFeatures>, 500, 65536},
                 .label = "Details in each picture",
                 .meaning = "The most details that are looked for in a picture. More help with difficult captures and "
                            "take longer."}),
      cameraRow({.key = "useGPU",
                 .value = SwitchSetting{memberOf<&Sparse::useGPU>},
                 .options = {{"--gpu-sift", nullptr, "COLMAP extracts features on the GPU"}},
                 .label = "Find details on the GPU",
                 .meaning = "Lets COLMAP use the graphics card to find details. Works only where COLMAP was built for "
                            "it."}),
      cameraRow({.key = "gpuMatching",
                 .value = SwitchSetting{memberOf<&Sparse::gpuMatching>},
                 .options = {{"--cpu-matching", nullptr, "COLMAP's matcher instead of the Vulkan matcher", false}},
                 .label = "Compare pictures on the GPU",
                 .meaning = "Compares pictures on the graphics card instead of with COLMAP, which is much faster."}),
      cameraRow({.key = "mapper",
                 .value = mapperChoice(),
                 .options = {{"--mapper", "NAME", "{default} (the default) or global"}},
                 .argument = "mapper",
                 .description = "COLMAP's incremental mapper (the default) or the global one",
                 .label = "How cameras are placed",
                 .meaning = "One by one is the tried way. All at once is faster for large sets, where the COLMAP that "
                            "is installed can do it."}),
      cameraRow({.key = "georeference",
                 .value = SwitchSetting{memberOf<&Sparse::georeference>},
                 .options = {{"--no-georeference", nullptr,
                              "keep COLMAP's own frame: not upright, and not in metres\n"
                              "where the photos know their GPS positions",
                              false}},
                 .label = "Upright and in metres",
                 .meaning = "Turns the solved scene until z points up. Where the photographs know their GPS positions, "
                            "it also comes to lie in metres, with x to the east and y to the north."}),
  };
}

std::vector<Setting> retryRows() {
  return {
      cameraRow({.key = "retries",
                 .value = choice<&Sparse::retries>({{"auto", "Until the cameras are sound"}, {"off", "Never"}},
                                                   "--camera-retries takes auto or off"),
                 .options = {{"--camera-retries", "NAME",
                              "auto (the default) solves cameras again in other ways when\n"
                              "the first solve is folded or leaves many images out; or off"}},
                 .argument = "camera_retries",
                 .description = "Solve the cameras again in other ways when the first solve is folded or leaves many "
                                "images out: auto (the default) or off",
                 .label = "Solve again in other ways",
                 .meaning = "A solve that lays two sides of the scene over each other, or leaves many pictures out, is "
                            "tried again in other ways, for up to three times its time; the best one is kept."}),
  };
}

}  // namespace

std::vector<Setting> cameraRows() {
  std::vector<Setting> rows = matchingRows();
  for (auto& more : {lensRows(), featureRows(), retryRows()}) rows.insert(rows.end(), more.begin(), more.end());
  return rows;
}

}  // namespace quor
