#include "sfm/retry/placing.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <optional>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "colmap/model_writer.h"
#include "sfm/check/verdict.h"
#include "sfm/match/colmap_database.h"
#include "sfm/retry/cut.h"
#include "sfm/retry/pair_choice.h"

namespace quor {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr double kEnoughPlaced = 0.8;  // of the images
constexpr double kTimesTheFirst = 3;   // what all attempts may take
constexpr int64_t kNear = 5, kNearWide = 8;
constexpr size_t kPartners = 4;

double since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Attempt {
  fs::path folder;  // of its model
  CameraReport report;
  ViewGraph graph;
  std::vector<SparseModel> models;  // all that were made
  size_t usable = 0;                // images that can be trained on
  double seconds = 0;

  bool sound() const {
    return report.trust != CameraTrust::Folded &&
           static_cast<double>(usable) >= kEnoughPlaced * static_cast<double>(report.images);
  }
  bool betterThan(const Attempt& other) const {
    if (usable != other.usable) return usable > other.usable;
    return agreeingPairs(graph, false).size() > agreeingPairs(other.graph, false).size();
  }
};

using Tuning = std::vector<std::pair<std::string, std::string>>;
const Tuning kLooser = {{"Mapper.abs_pose_min_num_inliers", "15"},
                        {"Mapper.abs_pose_min_inlier_ratio", "0.15"},
                        {"Mapper.init_min_num_inliers", "50"},
                        {"Mapper.init_min_tri_angle", "8"}};

class Placing {
 public:
  Placing(const SolveContext& solve, const std::vector<ImageGroup>& groups, bool fixedIntrinsics)
      : solve_(solve), groups_(groups), fixedIntrinsics_(fixedIntrinsics) {}

  PlacedCameras run(double secondsBefore) {
    const Clock::time_point start = Clock::now();
    const bool mayRetry = solve_.project.sparse.retries == CameraRetries::Auto;
    std::optional<NoImagePlaced> failure;
    try {
      attempt("as matched", solve_);
    } catch (const NoImagePlaced& error) {
      if (!mayRetry) throw;
      failure = error;
      attempts_.push_back({"as matched", 0, 0, 0, since(start), false});
    }
    solve_.colmap.endBy(start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                                    kTimesTheFirst * since(start) + (kTimesTheFirst - 1) * secondsBefore)));
    try {
      if (failure) {
        retryFromNothing(*failure);
      } else if (mayRetry && !best_->sound() && !best_->graph.edges.empty()) {
        retry();
      }
    } catch (const TimeOver&) {
      if (!best_) throw NoImagePlaced(*failure);
    }
    solve_.colmap.endBy({});
    return settle();
  }

 private:
  void retry() {
    solve_.log.warning("The cameras are not sound: " + best_->report.summary + " They are solved again in other ways.");
    const ViewGraph first = best_->graph;
    const bool folded = best_->report.trust == CameraTrust::Folded;
    if (folded) {
      undoFold(first);
    } else {
      if (best_->models.size() > 1) joinModels();
      placeMore(first);
    }
    if (!best_->sound() && solve_.colmap.hasCommand("global_mapper")) useOtherMapper();
    if (!best_->sound()) matchAgain(folded);
  }

  // Where no match leads to the images that are missing, other thresholds cannot reach them.
  void placeMore(const ViewGraph& first) {
    const auto leadsOut = [&](const ViewGraph::Edge& edge) {
      return (first.nodes[edge.a].placed == ViewGraph::kNotPlaced) !=
             (first.nodes[edge.b].placed == ViewGraph::kNotPlaced);
    };
    if (best_->sound() || std::ranges::none_of(first.edges, leadsOut)) return;
    again("looser thresholds", {}, kLooser);
    if (!best_->sound()) startElsewhere(first);
    if (!best_->sound() && best_->models.size() > 1) joinModels();
  }

  void retryFromNothing(const NoImagePlaced& failure) {
    solve_.log.warning("No camera could be placed. The cameras are solved again in other ways.");
    again("looser thresholds", {}, kLooser);
    if (!best_) matchAgain(false);
    if (!best_) throw NoImagePlaced(failure);
  }

  void undoFold(const ViewGraph& first) {
    const std::set<ImagePair> trusted = pairsToTrust(first, kNear);
    again(isWalk(first) ? "near neighbours" : "strongest partners", trusted);
    if (!best_->sound()) again("the same, looser thresholds", trusted, kLooser);
    if (!best_->sound()) again("wider neighbours", pairsToTrust(first, kNearWide), kLooser);
    if (best_->report.trust == CameraTrust::Folded) {
      again("stricter thresholds", {},
            {{"Mapper.abs_pose_min_num_inliers", "60"}, {"Mapper.abs_pose_min_inlier_ratio", "0.5"}});
    } else {  // what the better cameras say of all pairs
      again("loops that agree", agreeingPairs(graphOfAllPairs(*best_), true), kLooser);
    }
  }

  static std::set<ImagePair> pairsToTrust(const ViewGraph& graph, int64_t reach) {
    if (isWalk(graph)) return nearPairs(graph, reach);
    return strongestPairs(graph, reach == kNear ? kPartners : 2 * kPartners);
  }

  // The strongest pair of images that were left out begins the model.
  void startElsewhere(const ViewGraph& first) {
    const ViewGraph::Edge* strongest = nullptr;
    for (const ViewGraph::Edge& edge : first.edges) {
      if (edge.placed) continue;
      if (!strongest || edge.matches > strongest->matches) strongest = &edge;
    }
    if (!strongest) return;
    again("another initial pair", {},
          {{"Mapper.init_image_id1", std::to_string(first.nodes[strongest->a].id)},
           {"Mapper.init_image_id2", std::to_string(first.nodes[strongest->b].id)}});
  }

  // Models of one attempt that share images become one.
  void joinModels() {
    const std::vector<SparseModel> models = best_->models;
    const std::string name = "models joined";
    tryAttempt(name, [&] {
      const Clock::time_point start = Clock::now();
      const SolveContext context = contextFor(name);
      SparseModel joined = models.front();
      for (size_t i = 1; i < models.size(); ++i) {
        const fs::path folder = context.files.sparse / std::to_string(i);
        runOnModels(context, "model_merger",
                    {"--input_path1", toUtf8(joined.folder), "--input_path2", toUtf8(models[i].folder)}, folder);
        const size_t registered = gs::colmap::loadModel(folder, false).images.size();
        if (registered > joined.registered) joined = {folder, registered};
      }
      if (joined.registered == models.front().registered) throw std::runtime_error("they share too few images");
      const fs::path adjusted = context.files.sparse / "adjusted";
      runOnModels(context, "bundle_adjuster", {"--input_path", toUtf8(joined.folder)}, adjusted);
      joined.folder = adjusted;
      consider(name, context, {joined}, start);
    });
  }

  static void runOnModels(const SolveContext& context, const std::string& command, std::vector<std::string> inputs,
                          const fs::path& output) {
    fs::create_directories(output);
    inputs.insert(inputs.end(), {"--output_path", toUtf8(output)});
    context.run({command, std::move(inputs), {}}, [](std::string_view) { return std::nullopt; });
  }

  void useOtherMapper() {
    again("the other mapper", {}, {}, [](SolveContext& context) { context.otherMapper = true; });
  }

  // More and weaker features, matched anew along the epipolar lines.
  void matchAgain(bool folded) {
    const std::string name = "more features, guided matching";
    tryAttempt(name, [&] {
      SolveContext again = contextFor(name);
      again.tuning = {{"SiftExtraction.peak_threshold", "0.0027"},
                      {"SiftExtraction.edge_threshold", "20"},
                      {"FeatureMatching.guided_matching", "1"},
                      {"SiftMatching.guided_matching", "1"}};
      extractFeatures(again, groups_);
      matchFeatures(again);
      if (folded) {
        const ViewGraph matched = viewGraph(again.files.database, {}, {});
        ColmapDatabase(again.files.database).keepVerifiedPairs(pairsToTrust(matched, kNear));
      }
      attempt(name, again);
      fs::remove(again.files.database);
    });
  }

  // With these pairs only, or with all where there are none, and these options.
  void again(const std::string& name, const std::set<ImagePair>& pairs, Tuning tuning = {},
             const std::function<void(SolveContext&)>& change = {}) {
    tryAttempt(name, [&] {
      SolveContext again = contextFor(name);
      again.tuning = std::move(tuning);
      if (change) change(again);
      fs::copy_file(solve_.files.database, again.files.database, fs::copy_options::overwrite_existing);
      if (!pairs.empty()) ColmapDatabase(again.files.database).keepVerifiedPairs(pairs);
      attempt(name, again);
      fs::remove(again.files.database);  // as large as the solve's own
    });
  }

  template <typename Try>
  void tryAttempt(const std::string& name, Try&& run) {
    try {
      run();
    } catch (const Cancelled&) {
      throw;
    } catch (const TimeOver& over) {
      solve_.log.info("Cameras, " + name + ": " + over.what());
      throw;
    } catch (const std::exception& error) {
      if (solve_.cancelled()) throw Cancelled();
      solve_.log.info("Cameras, " + name + ": " + error.what());
    }
  }

  // A solve of its own folder, which shares all else.
  SolveContext contextFor(const std::string& name) {
    ColmapWorkspace& files = workspaces_.emplace_back(solve_.files);
    const fs::path folder = solve_.files.retries / std::to_string(workspaces_.size());
    files.database = folder / "database.db";
    files.sparse = folder / "sparse";
    files.rig = folder / "rig";
    files.lists = folder / "lists";
    for (const fs::path& made : {files.sparse, files.lists}) fs::create_directories(made);
    solve_.log.info("Solving the cameras again: " + name);
    return {solve_.project,  files,         solve_.colmap, solve_.output,   solve_.log,
            solve_.progress, solve_.images, solve_.gpu,    solve_.cancelled};
  }

  void attempt(const std::string& name, const SolveContext& context) {
    const Clock::time_point start = Clock::now();
    consider(name, context, mapImages(context, fixedIntrinsics_), start);
  }

  // Keeps the first of the models, which the attempt since `start` has made, if it is better than the best so far.
  void consider(const std::string& name, const SolveContext& context, std::vector<SparseModel> models,
                Clock::time_point start) {
    models.front() = refineModel(context, models.front(), groups_, fixedIntrinsics_);
    Attempt made;
    made.folder = models.front().folder;
    examine(context, models, made);
    made.models = std::move(models);
    made.seconds = since(start);
    attempts_.push_back(
        {name, made.report.registered, made.report.foldScore(), made.report.reprojectionError, made.seconds, false});
    if (best_) solve_.log.info("Cameras, " + name + ": " + made.report.summary);
    if (best_ && !made.betterThan(*best_)) return;
    best_ = std::move(made);
    kept_ = attempts_.size() - 1;
  }

  // The verdict, as far as the database can be read.
  void examine(const SolveContext& context, const std::vector<SparseModel>& models, Attempt& made) const {
    const Clock::time_point start = Clock::now();
    const gs::colmap::Model model = gs::colmap::loadModel(made.folder, true);
    std::vector<gs::colmap::Observations> observations(model.images.size());
    try {
      observations = gs::colmap::loadObservations(made.folder, model);
      made.graph = viewGraph(context.files.database, model, observations);
    } catch (const std::exception& error) {
      context.log.info(std::string("The cameras cannot be compared with their matches: ") + error.what());
    }
    std::vector<size_t> sizes;
    sizes.reserve(models.size());
    for (const SparseModel& each : models) sizes.push_back(each.registered);
    made.report = judge({model, observations, made.graph, solve_.images, sizes});
    made.usable = made.report.trust == CameraTrust::Folded ? longestSoundStretch(made.graph, made.report.jumps).size()
                                                           : model.images.size();
    made.report.checkSeconds = since(start);
  }

  ViewGraph graphOfAllPairs(const Attempt& attempt) const {
    const gs::colmap::Model model = gs::colmap::loadModel(attempt.folder, true);
    return viewGraph(solve_.files.database, model, gs::colmap::loadObservations(attempt.folder, model));
  }

  PlacedCameras settle() {
    attempts_[kept_].kept = true;
    PlacedCameras placed{best_->folder, std::move(best_->report)};
    if (placed.folder.parent_path() != solve_.files.sparse && placed.folder != solve_.files.sparse) {
      // What readers find as the solve's first model.
      const fs::path first = solve_.files.sparse / "0";
      fs::remove_all(solve_.files.sparse);
      fs::create_directories(solve_.files.sparse);
      fs::rename(placed.folder, first);
      placed.folder = first;
      placed.report.advice.push_back("These cameras are those of a further attempt: " + attempts_[kept_].name + ".");
    }
    if (placed.report.trust == CameraTrust::Folded) cut(placed);
    placed.report.attempts = std::move(attempts_);
    std::error_code ignored;
    fs::remove_all(solve_.files.retries, ignored);
    return placed;
  }

  void cut(PlacedCameras& placed) const {
    const std::set<std::string> stretch = longestSoundStretch(best_->graph, placed.report.jumps);
    if (stretch.size() < kFewestOfAStretch || stretch.size() >= placed.report.registered) return;
    gs::colmap::Model model = gs::colmap::loadModel(placed.folder, true);
    std::vector<gs::colmap::Observations> observations = gs::colmap::loadObservations(placed.folder, model);
    keepImages(model, observations, stretch);
    gs::colmap::writeModel(placed.folder, model, observations, gs::colmap::Encoding::Binary);
    placed.report.trust = CameraTrust::Doubtful;
    placed.report.summary = formatText(
        "The cameras are folded, and only the longest stretch without a contradiction is "
        "used: %zu of %zu images, %s to %s.",
        stretch.size(), placed.report.images, stretch.begin()->c_str(), stretch.rbegin()->c_str());
    placed.report.registered = model.images.size();
    placed.report.points = model.points.count();
  }

  static constexpr size_t kFewestOfAStretch = 8;

  const SolveContext& solve_;
  const std::vector<ImageGroup>& groups_;
  const bool fixedIntrinsics_;
  std::optional<Attempt> best_;
  size_t kept_ = 0;
  std::vector<CameraReport::Attempt> attempts_;
  std::list<ColmapWorkspace> workspaces_;
};

}  // namespace

PlacedCameras placeCameras(const SolveContext& solve, const std::vector<ImageGroup>& groups, bool fixedIntrinsics,
                           double secondsBefore) {
  return Placing(solve, groups, fixedIntrinsics).run(secondsBefore);
}

}  // namespace quor
