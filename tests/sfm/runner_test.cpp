#include <thread>

#include "colmap/model.h"
#include "solve_fixture.h"
#include "support/feature_database.h"
#include "support/wait_until.h"

namespace quor::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class Runner : public SolveTest {};

TEST_F(Runner, RunsTheStepsAndLeavesADatasetToTrainOn) {
  addFrames();
  project.sparse.useGPU = false;
  FakeColmap colmap(folder / "tool" / "bin");
  colmap.mapsTo("0", {"a.jpg"});
  colmap.mapsTo("1", {"a.jpg", "b.jpg", "c.jpg"});
  // What earlier solves, finished and killed ones, have left.
  for (const char* stale : {"database.db", "database.db-wal", "sparse/7/cameras.bin", "lists/group09.txt",
                            "undistorted/old", "undistorted.partial/old"}) {
    writeFile(project.colmapFolder() / stale, "old");
  }

  const ColmapRunner::Result result = solve(colmap);

  EXPECT_EQ(result.report.images, 4u);
  EXPECT_EQ(result.report.registered, 3u);
  EXPECT_THAT(result.report.modelSizes, ElementsAre(3u, 1u));
  EXPECT_EQ(result.report.points, 2u);
  EXPECT_EQ(result.dataset, project.solvedFolder());
  EXPECT_EQ(gs::colmap::loadModel(result.dataset / "sparse", true).images.size(), 3u);
  EXPECT_TRUE(fs::exists(result.dataset / "images" / "a.jpg"));
  for (const char* gone : {"database.db-wal", "sparse/7", "lists/group09.txt", "undistorted/old", "undistorted.partial",
                           "undistorted/run-colmap-geometric.sh", "undistorted/stereo/run-colmap-photometric.sh"}) {
    EXPECT_FALSE(fs::exists(project.colmapFolder() / gone)) << gone;
  }

  EXPECT_THAT(colmap.calls(), ElementsAre(AllOf(StartsWith("feature_extractor "), HasSubstr("lists/group01.txt"),
                                                HasSubstr("camera_model OPENCV"), HasSubstr("max_image_size 2400 ")),
                                          StartsWith("exhaustive_matcher "), StartsWith("mapper "),
                                          AllOf(StartsWith("image_undistorter "), HasSubstr("/colmap/sparse/1 "),
                                                HasSubstr("/undistorted.partial "))));
  for (const std::string& call : colmap.calls()) {
    EXPECT_THAT(call, EndsWith(" [offscreen " + toUtf8(folder / "tool/plugins") + "]"));
  }
  EXPECT_EQ(readFile(project.colmapFolder() / "lists/group01.txt"), "a.jpg\nb.jpg\nc.jpg\nd.jpg\n");

  EXPECT_THAT(messages, ElementsAre("Extracting features (4 images)", "Matching features", "Solving cameras",
                                    "Undistorting images"));
  EXPECT_EQ(reached, 1);
  EXPECT_THAT(logText(), AllOf(HasSubstr("$ colmap feature_extractor --database_path "),
                               HasSubstr("Registered 3 of 4 images (largest of 2 models)"),
                               HasSubstr(", intrinsics solved by COLMAP")));
  EXPECT_THAT(readFile(project.colmapFolder() / "colmap.log"),
              AllOf(HasSubstr("COLMAP 3.8 -- SfM\n"), HasSubstr("Registering image #7 (3)\n")));
}

TEST_F(Runner, SpeaksTheNewerVersionsLanguage) {
  addFrames();
  project.sparse.mapper = MapperKind::Global;
  FakeColmap colmap(folder / "tool", FakeVersion::Four);
  colmap.mapsTo("0", {"a.jpg", "b.jpg", "c.jpg"});
  colmap.on("feature_extractor",
            "echo 'I20260101 10:00:00.000001 77 feature_extraction.cc:2] Processed file [2/2]'; "
            "echo 'W20260101 10:00:00.000001 77 a.cc:2] Something is odd'");
  solve(colmap);

  EXPECT_THAT(colmap.call("feature_extractor"), AllOf(HasSubstr(" --FeatureExtraction.use_gpu 0 "),
                                                      HasSubstr(" --FeatureExtraction.max_image_size 2400 "),
                                                      HasSubstr(" --SiftExtraction.max_num_features 8192 ")));
  EXPECT_THAT(colmap.call("exhaustive_matcher"), HasSubstr(" --FeatureMatching.use_gpu 0 "));
  EXPECT_THAT(colmap.call("view_graph_calibrator"), Not(IsEmpty()));
  EXPECT_THAT(colmap.call("global_mapper"), HasSubstr(" --GlobalMapper.track_required_tracks_per_view 50 "));
  EXPECT_THAT(colmap.call("mapper"), IsEmpty());
  EXPECT_THAT(messages, ElementsAre("Extracting features (4 images)", "Matching features", "Calibrating cameras",
                                    "Solving cameras with the global mapper", "Undistorting images"));
  EXPECT_THAT(logText(), HasSubstr("warning: COLMAP: Something is odd\n"));
}

TEST_F(Runner, DoesWithoutHelpWithoutATreeAndWithoutAGlobalMapper) {
  addFrames();
  project.sparse.mapper = MapperKind::Global;
  project.sparse.matcher = Matcher::VocabTree;
  FakeColmap colmap(folder / "tool", FakeVersion::Mute);
  colmap.mapsTo("0", {"a.jpg"});
  fs::create_directories(folder / "tool/lib/plugins/platforms");  // of Qt, where older archives have them
  solve(colmap);
  EXPECT_THAT(colmap.call("feature_extractor"), HasSubstr(" --SiftExtraction.use_gpu 0 "));
  EXPECT_THAT(colmap.call("exhaustive_matcher"), HasSubstr(" --SiftMatching.use_gpu 0 "));
  EXPECT_THAT(colmap.call("mapper"), AllOf(EndsWith("/lib/plugins]\n"), Not(HasSubstr("Mapper.ba"))));
  EXPECT_THAT(colmap.call("image_undistorter"), Not(HasSubstr("jpeg_quality")));
  EXPECT_THAT(logText(),
              AllOf(HasSubstr("The vocab-tree matcher needs a vocabulary tree file (Settings); using exhaustive."),
                    HasSubstr("This COLMAP has no global mapper (it arrived in COLMAP 4); using the incremental one."),
                    HasSubstr("warning: Fewer than half the images registered; the capture may lack overlap.")));
}

TEST_F(Runner, HandsTheVocabularyTreeOn) {
  addFrames();
  FakeColmap colmap(folder / "tool");
  colmap.mapsTo("0", {"a.jpg"});
  project.sparse.vocabTreePath = "/tree";
  project.sparse.matcher = Matcher::VocabTree;
  solve(colmap);
  EXPECT_THAT(colmap.call("vocab_tree_matcher"), HasSubstr("--VocabTreeMatching.vocab_tree_path /tree "));
}

TEST_F(Runner, RefusesBeforeItTouchesAnything) {
  FakeColmap colmap(folder / "tool");
  writeFile(project.solvedFolder() / "old", "kept");
  EXPECT_EQ(thrownText([&] { solve(colmap); }), "There are no frames to solve. Run the Frames stage first.");
  addFrame("a.jpg");
  addFrame("b.jpg");
  EXPECT_EQ(thrownText([&] { solve(colmap); }), "COLMAP needs at least 3 images.");
  writeFile(project.framesFolder() / "c.jpg", "no picture");
  EXPECT_EQ(thrownText([&] { solve(colmap); }), "COLMAP needs at least 3 images.");
  addFrame("d.jpg");
  ColmapRunner none(std::nullopt, log, [] { return false; });
  EXPECT_THAT(thrownText([&] { none.run(project, [](const std::string&, float, int) {}); }),
              AllOf(HasSubstr("Settings"), HasSubstr("put colmap on PATH")));
  EXPECT_THAT(colmap.calls(), IsEmpty());
  ::chmod(colmap.executable().c_str(), 0644);
  EXPECT_THAT(thrownText([&] { solve(colmap); }), StartsWith("Could not run COLMAP ("));
  EXPECT_EQ(readFile(project.solvedFolder() / "old"), "kept");
}

TEST_F(Runner, RunsOnTheProcessorWhatTheGpuCannot) {
  addFrames();
  project.sparse.useGPU = true;
  FakeColmap colmap(folder / "tool");
  colmap.mapsTo("0", {"a.jpg", "b.jpg"});
  colmap.on("exhaustive_matcher",
            "tail -n 1 \"$here/calls\" | grep -q 'use_gpu 0' || { echo 'ERROR: Not enough GPU memory'; exit 1; }");
  solve(colmap);
  EXPECT_THAT(colmap.call("feature_extractor"), HasSubstr("use_gpu 1 "));
  EXPECT_THAT(colmap.call("exhaustive_matcher"), AllOf(HasSubstr("use_gpu 1 "), HasSubstr("use_gpu 0 ")));
  EXPECT_THAT(logText(), HasSubstr("COLMAP could not use the GPU for exhaustive_matcher — running it on the CPU "
                                   "instead."));
}

TEST_F(Runner, TriesAgainWhereNoImageCouldBePlaced) {
  addFrames();
  FakeColmap colmap(folder / "tool");
  colmap.mapsTo("0", {"a.jpg", "b.jpg", "c.jpg"});
  colmap.on(
      "mapper",
      "tail -n 1 \"$here/calls\" | grep -q 'abs_pose_min_num_inliers 15' || { echo 'ERROR: failed to create sparse "
      "model'; exit 1; }\ncp -r \"$here\"/models/* \"$output\"");
  const ColmapRunner::Result result = solve(colmap);
  EXPECT_EQ(result.report.registered, 3u);
  ASSERT_EQ(result.report.attempts.size(), 2u);
  EXPECT_TRUE(result.report.attempts[1].kept);
  EXPECT_EQ(gs::colmap::loadModel(project.sparseFolder() / "0", false).images.size(), 3u);
  EXPECT_FALSE(std::filesystem::exists(project.colmapFolder() / "retries"));

  project.sparse.retries = CameraRetries::Off;
  reached = 0;
  EXPECT_THAT(thrownText([&] { solve(colmap); }), HasSubstr("no images registered"));
}

// Four images whose matches are known, so that a solve that leaves one out is tried again.
class RunnerRetries : public Runner {
 protected:
  RunnerRetries() {
    addFrames();
    FeatureDatabase features(folder / "tool/features.db");
    for (uint32_t i = 0; i < 4; ++i) features.addImage(i + 1, frames[i]);
    for (const char* pair : {"1 * 2147483647 + 2", "2 * 2147483647 + 3", "3 * 2147483647 + 4"}) {
      features.execute(std::string("INSERT INTO two_view_geometries VALUES (") + pair + ", 20, 2, zeroblob(160), 2)");
    }
    colmap.on("feature_extractor", "cp \"$here/features.db\" \"$database\"");
    colmap.mapsTo("0", {"a.jpg", "b.jpg", "c.jpg"});
  }

  FakeColmap colmap{folder / "tool"};
};

TEST_F(RunnerRetries, SpeakEveryVersionsLanguage) {
  for (const FakeVersion version : {FakeVersion::Three, FakeVersion::ThreeTwelve, FakeVersion::ThreeThirteen,
                                    FakeVersion::Four, FakeVersion::Mute}) {
    FakeColmap each(folder / ("version " + std::to_string(static_cast<int>(version))), version);
    each.on("feature_extractor", "cp \"$here/../tool/features.db\" \"$database\"");
    each.mapsTo("0", {"a.jpg", "b.jpg", "c.jpg"});
    each.on("mapper", "sleep 0.2; cp -r \"$here\"/models/* \"$output\"");  // time enough for all attempts
    reached = 0;
    const ColmapRunner::Result result = solve(each);
    std::vector<std::string> names;
    for (const CameraReport::Attempt& attempt : result.report.attempts) names.push_back(attempt.name);
    EXPECT_THAT(names, ::testing::Contains("looser thresholds"));
    EXPECT_EQ(std::ranges::count(names, "the other mapper"), version == FakeVersion::Four ? 1 : 0);
    EXPECT_FALSE(each.call("feature_extractor").empty());
  }
  EXPECT_THAT(logText(), Not(HasSubstr("unrecognised option")));
}

TEST_F(RunnerRetries, JoinsModelsThatShareImages) {
  colmap.mapsTo("1", {"c.jpg", "d.jpg"});
  gs::colmap::writeModel(folder / "tool/joined", modelOf(frames), {}, gs::colmap::Encoding::Binary);
  colmap.on("model_merger", "cp -r \"$here/joined/.\" \"$output\"");
  colmap.on("bundle_adjuster", "cp -r \"$input/.\" \"$output\"");
  const ColmapRunner::Result result = solve(colmap);
  EXPECT_EQ(result.report.registered, 4u);
  ASSERT_EQ(result.report.attempts.size(), 2u);
  EXPECT_EQ(result.report.attempts[1].name, "models joined");
  EXPECT_TRUE(result.report.attempts[1].kept);
  EXPECT_THAT(colmap.call("model_merger"), AllOf(HasSubstr("sparse/0 "), HasSubstr("sparse/1 ")));
}

TEST_F(RunnerRetries, EndsAnAttemptThatTakesTooLong) {
  colmap.on("mapper",
            "[ -e \"$here/again\" ] && sleep 600; touch \"$here/again\"; cp -r \"$here\"/models/* \"$output\"");
  const ColmapRunner::Result result = solve(colmap);
  EXPECT_EQ(result.report.registered, 3u);
  EXPECT_THAT(result.report.attempts, ::testing::SizeIs(1));
  EXPECT_THAT(logText(), HasSubstr("Cameras, looser thresholds: ended, since"));
  EXPECT_TRUE(hasDataset());
}

TEST_F(Runner, FailsWithASentenceAndNoDataset) {
  addFrames();
  const std::string noModel =
      "COLMAP could not reconstruct the scene: no images registered. Captures need 60-80% overlap between neighbouring "
      "views and enough texture.";
  const struct {
    std::string command, script, text, logged;
  } cases[] = {
      {"feature_extractor", "printf 'some words\\nERROR: bad \\377 image\\n    @ 0x1 main\\nbye'; exit 3",
       "feature_extractor failed (COLMAP exit code 3)", "warning: COLMAP: ERROR: bad \uFFFD image"},
      {"feature_extractor", "for i in $(seq 30); do echo \"line $i\"; done; echo 'ERROR: bad'; exit 3",
       "feature_extractor failed (COLMAP exit code 3)",
       "warning: COLMAP: ERROR: bad\nwarning: COLMAP: line 11\nwarning: COLMAP: line 12\n"},
      {"exhaustive_matcher", "echo busy; kill -SEGV $$", "exhaustive_matcher failed (COLMAP exit code 139)",
       "warning: COLMAP: busy"},
      {"mapper", "kill -KILL $$", "mapper failed (COLMAP exit code 137)", "when memory runs out"},
      {"mapper", "echo 'ERROR: failed to create sparse model'; exit 1", noModel, "failed to create"},
      {"mapper", "cp -r \"$here/empty/0\" \"$output\"", noModel, ""},
      {"mapper", "mkdir \"$output/0\"; echo x > \"$output/0/cameras.bin\"; echo x > \"$output/0/images.bin\"", noModel,
       "warning: COLMAP left a model that cannot be read: Truncated"},
      {"image_undistorter", "true", "COLMAP ended without a model of the undistorted images", ""},
      {"image_undistorter",
       "cp -r \"$input\" \"$output/sparse\"; mkdir \"$output/images\"; echo x > \"$output/images/a.jpg\"",
       "COLMAP left out 1 of 2 images when it undistorted them. Is the disk full?", ""},
  };
  int number = 0;
  for (const auto& [command, script, text, logged] : cases) {
    const std::string name = std::to_string(number++) + ": " + command;
    FakeColmap colmap(folder / ("tool " + name));
    colmap.mapsTo("0", {"a.jpg", "b.jpg"});
    gs::colmap::writeModel(colmap.executable().parent_path() / "empty/0", modelOf({}), {},
                           gs::colmap::Encoding::Binary);
    colmap.on(command, script);
    writeFile(project.solvedFolder() / "old", "old");
    reached = 0;
    EXPECT_THAT(thrownText([&] { solve(colmap); }), StartsWith(text)) << name;
    EXPECT_FALSE(hasDataset()) << name;
    EXPECT_THAT(logText(), HasSubstr(logged)) << name;
  }
}

TEST_F(Runner, CancelsInEveryStepWithoutLeavingAnything) {
  addFrames();
  for (const char* command : {"feature_extractor", "exhaustive_matcher", "mapper", "image_undistorter"}) {
    FakeColmap colmap(folder / (std::string("tool ") + command));
    colmap.mapsTo("0", {"a.jpg", "b.jpg"});
    colmap.on(command, "sleep 600 & echo $! > \"$here/child\"; mkdir -p \"$output/sparse\"; wait");
    cancelled = false;
    reached = 0;
    std::jthread canceller([&] {
      const fs::path child = colmap.executable().parent_path() / "child";
      EXPECT_TRUE(waitUntil([&] { return fs::exists(child) && fs::file_size(child) > 0; }));
      cancelled = true;
    });
    EXPECT_EQ(thrownText([&] { solve(colmap); }), "Cancelled") << command;
    EXPECT_FALSE(hasDataset()) << command;
    const std::string child = readFile(colmap.executable().parent_path() / "child");
    EXPECT_FALSE(fs::exists("/proc/" + child.substr(0, child.find('\n')))) << command;
  }
}

}  // namespace
}  // namespace quor::test
