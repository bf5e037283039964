#include "settings/table_rows.h"

namespace quor {

namespace {

using Training = TrainingSettings;

// More than any device holds; the number keeps its digits in a double.
constexpr uint64_t kMaxSplats = 1'000'000'000'000;

Setting trainingRow(Setting row) {
  row.group = SettingGroup::Training;
  row.stage = SettingStage::Training;
  if (row.places == 0) row.places = kWithAnything;
  return row;
}

ChoiceSetting techniqueChoice() {
  ChoiceSetting technique = choice<&Training::technique>(
      {{"vanilla", "Growing (Vanilla)", {"default", "adc"}}, {"mcmc", "Fixed budget (MCMC)"}},
      "unknown technique '{}' (vanilla or mcmc)");
  technique.anyCase = true;
  return technique;
}

// What decides how long training takes and how good the scene is.
std::vector<Setting> sizeRows() {
  return {
      trainingRow({.key = "technique",
                   .value = techniqueChoice(),
                   .options = {{"--technique", "NAME",
                                "{default} (the default) grows splats: clone, split, prune;\n"
                                "mcmc keeps a fixed budget and relocates splats"}},
                   .argument = "technique",
                   .description = "vanilla grows splats where detail is missing (the default), mcmc keeps to a fixed "
                                  "budget of splats",
                   .label = "Technique",
                   .meaning = "Growing adds splats where detail is missing and takes away what is not seen. A fixed "
                              "budget keeps a steady number of splats and moves them to where they are needed: smaller "
                              "files, less memory."}),
      trainingRow(
          {.key = "iterations",
           .value = WholeSetting{memberOf<&Training::iterations>, 1, kNoLimit},
           .options = {{"--iterations", "N", "training steps (default {default}; 15000-30000 for a final result)"}},
           .argument = "iterations",
           .description = "Training iterations (default {default})",
           .label = "Steps",
           .meaning = "Each step compares the scene with one picture and improves it. 7,000 give a good scene, "
                      "15,000 to 30,000 a final one."}),
      trainingRow({.key = "splatBudget",
                   .value = CountSetting{memberOf<&Training::splatBudget>, kMaxSplats, "automatic"},
                   .options = {{"--budget", "N",
                                "most splats (default {default}: vanilla as many as fit in GPU memory, mcmc "
                                "automatic)"}},
                   .argument = "budget",
                   .description = "Most splats (default {default}: vanilla as many as fit in GPU memory, mcmc "
                                  "automatic)",
                   .label = "Most splats",
                   .meaning = "The scene has no more splats than this. A lower number makes a smaller file and needs "
                              "less GPU memory."}),
      trainingRow(
          {.key = "trainingResolution",
           .value = WholeSetting{memberOf<&Training::trainingResolution>, 0, kMaxImageEdge, "the pictures' own size"},
           .options = {{"--resolution", "N",
                        "longest edge of the training images in pixels (default {default}: their own size)"}},
           .argument = "resolution",
           .description = "Longest edge of the training images in pixels (default {default}: their own size)",
           .label = "Longest edge in training",
           .meaning = "Pictures are trained on at this many pixels. More shows finer detail and takes more time "
                      "and memory."}),
      trainingRow({.key = "shDegree",
                   .value = WholeSetting{memberOf<&Training::shDegree>, 0, kMaxShDegree},
                   .options = {{"--sh", "N", "spherical-harmonics degree, {least}-{most} (default {default})"}},
                   .argument = "sh_degree",
                   .description = "Degree of the view-dependent colour (default {default})",
                   .label = "Reflections",
                   .meaning = "How far the colour of a splat may change with the direction of view: {least} not at "
                              "all, {most} most."}),
      trainingRow({.key = "numDownscales",
                   .value = WholeSetting{memberOf<&Training::numDownscales>, 0, kMaxDownscales},
                   .options = {{"--downscales", "N", "coarse-to-fine levels, {least}-{most} (default {default})"}},
                   .label = "Coarse to fine",
                   .meaning = "Training starts on pictures halved this many times, which is faster and steadier."}),
      trainingRow({.key = "ssimWeight",
                   .value = real<&Training::ssimWeight>(0, 1, "%.2f", "a number"),
                   .label = "Weight of structure",
                   .meaning = "What counts as a good picture: 0 single pixels only, 1 structure only."}),
      trainingRow({.key = "refineEvery",
                   .value = WholeSetting{memberOf<&Training::refineEvery>, 10, 10000},
                   .label = "Steps between refinements",
                   .meaning = "After this many steps splats are added, moved or removed."}),
  };
}

std::vector<Setting> outcomeRows() {
  return {
      trainingRow({.key = "exportPLY",
                   .value = SwitchSetting{memberOf<&Training::exportPLY>},
                   .label = "Write scene.ply",
                   .meaning = "The scene in full, for this viewer and most others."}),
      trainingRow({.key = "exportSplat",
                   .value = SwitchSetting{memberOf<&Training::exportSplat>},
                   .options = {{"--splat", nullptr, "also export scene.splat"}},
                   .argument = "export_splat",
                   .description = "Also write the compact output/scene.splat (default {default})",
                   .label = "Write scene.splat too",
                   .meaning = "A small file for viewers on the web, without reflections."}),
      trainingRow({.key = "evalMode",
                   .value = SwitchSetting{memberOf<&Training::evalMode>},
                   .options = {{"--no-eval", nullptr, "train on every view and skip the held-out evaluation", false}},
                   .argument = "evaluate",
                   .description = "Hold out some of the pictures and score the scene on them (default {default})",
                   .label = "Keep pictures back to score the scene",
                   .meaning = "Some pictures are not trained on; how well the scene predicts them is its score."}),
      trainingRow({.key = "testEvery",
                   .value = WholeSetting{memberOf<&Training::testEvery>, 2, 1000},
                   .label = "Every how many-th is kept back",
                   .meaning = "8 keeps back one picture in eight."}),
      trainingRow({.key = "background",
                   .value = ColourSetting{memberOf<&Training::background>},
                   .label = "Background",
                   .meaning = "The colour behind the splats."}),
      trainingRow({.key = "visualizerEnabled",
                   .value = SwitchSetting{memberOf<&Training::visualizerEnabled>},
                   .label = "Show the scene while it trains",
                   .meaning = "Off leaves all of the GPU to training."}),
      // In the window the button that is pressed decides it.
      trainingRow({.key = "continueFromCheckpoint",
                   .value = SwitchSetting{memberOf<&Training::continueFromCheckpoint>},
                   .places = kOnTrain | kOnImport,
                   .options = {{"--resume", nullptr,
                                "train: continue from output/checkpoint.quor (every run writes one) up to "
                                "--iterations"},
                               {"--fresh", nullptr, "train: start over even if continuing was set", false}}}),
  };
}

}  // namespace

std::vector<Setting> trainingRows() {
  std::vector<Setting> rows = sizeRows();
  for (Setting& row : outcomeRows()) rows.push_back(std::move(row));
  return rows;
}

}  // namespace quor
