#include <algorithm>

#include "base/files/paths.h"
#include "sfm/match/pair_selection.h"
#include "sfm/solve_context.h"

namespace quor {
namespace {

constexpr float kMatchingBegins = 0.15f;
constexpr float kMatchingEnds = 0.75f;

// The setting, unless it cannot be followed.
Matcher usableMatcher(const SolveContext& solve) {
  const SparseSettings& settings = solve.project.sparse;
  if (settings.matcher != Matcher::VocabTree || !settings.vocabTreePath.empty()) return settings.matcher;
  return Matcher::Exhaustive;
}

// Images a side of the blocks of pairs that COLMAP reports its progress by: small enough for some blocks, large enough
// for COLMAP to keep all processors busy within one.
size_t blockSize(size_t images) {
  return std::clamp<size_t>(images / 6, 10, 50);
}

ColmapStep matcherStep(const SolveContext& solve, Matcher matcher) {
  const SparseSettings& settings = solve.project.sparse;
  ColmapStep step;
  const auto add = [&](std::initializer_list<std::string> words) {
    step.arguments.insert(step.arguments.end(), words);
  };
  add({"--database_path", toUtf8(solve.files.database)});
  switch (matcher) {
    case Matcher::Exhaustive:
      step.command = "exhaustive_matcher";
      addTuning(step, solve.colmap, "ExhaustiveMatching.block_size", std::to_string(blockSize(solve.images)));
      break;
    case Matcher::Sequential:
      step.command = "sequential_matcher";
      add({"--SequentialMatching.overlap", std::to_string(std::max(settings.sequentialOverlap, 1))});
      if (!settings.vocabTreePath.empty()) {
        add({"--SequentialMatching.loop_detection", "1", "--SequentialMatching.vocab_tree_path",
             settings.vocabTreePath});
      }
      break;
    case Matcher::VocabTree:
      step.command = "vocab_tree_matcher";
      add({"--VocabTreeMatching.vocab_tree_path", settings.vocabTreePath});
      break;
  }
  addGpuOption(step, solve.colmap, {"FeatureMatching.use_gpu", "SiftMatching.use_gpu"}, settings.useGPU);
  addTuning(step, solve);
  return step;
}

}  // namespace

ColmapStep pairListStep(const SolveContext& solve, const std::filesystem::path& list) {
  ColmapStep step;
  step.command = "matches_importer";
  step.arguments = {
      "--database_path", toUtf8(solve.files.database), "--match_list_path", toUtf8(list), "--match_type", "pairs"};
  addGpuOption(step, solve.colmap, {"FeatureMatching.use_gpu", "SiftMatching.use_gpu"}, solve.project.sparse.useGPU);
  addTuning(step, solve);
  return step;
}

MatchedBy plannedMatcher(const SolveContext& solve) {
  return canMatchOnGpu(solve, usableMatcher(solve)) ? MatchedBy::OwnMatcher : MatchedBy::Colmap;
}

MatchedBy matchFeatures(const SolveContext& solve) {
  const Matcher matcher = usableMatcher(solve);
  if (matcher != solve.project.sparse.matcher) {
    solve.log.info("The vocab-tree matcher needs a vocabulary tree file (Settings); using exhaustive.");
  }
  if (matchFeaturesOnGpu(solve, matcher, {kMatchingBegins, kMatchingEnds})) return MatchedBy::OwnMatcher;
  solve.progress.begin("Matching features", kMatchingBegins, kMatchingEnds);
  if (limitsPairs(solve, matcher)) {
    solve.run(pairListStep(solve, writePairList(solve, "pairs.txt", selectPairs(solve, matcher))), countedFraction);
  } else {
    solve.run(matcherStep(solve, matcher), countedFraction);
  }
  return MatchedBy::Colmap;
}

}  // namespace quor
