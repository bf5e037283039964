#include "project/project.h"

#include <gmock/gmock.h>

#include "support/matches_pattern.h"
#include "support/platform.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

namespace fs = std::filesystem;
using test::MatchesPattern;
using test::readFile;
using test::TempFolder;
using test::thrownText;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

Project loadText(const TempFolder& folder, const std::string& text) {
  writeFile(folder / "project.json", text);
  return Project::load(folder.path());
}

std::vector<std::string> topLevelKeys(const fs::path& folder) {
  std::vector<std::string> keys;
  const auto json = nlohmann::ordered_json::parse(readFile(folder / "project.json"));
  for (const auto& [key, value] : json.items()) keys.push_back(key);
  return keys;
}

TEST(Project, CreationMakesTheLayoutBesideTheInput) {
  const TempFolder folder;
  fs::create_directories(folder / "trip.2024");
  const std::string input = toUtf8(folder / "trip.2024");
  for (const char* ending : {"", "/", "\\", "//"}) {
    const Project project = Project::create({{input + ending, InputKind::Images}}, {});
    EXPECT_EQ(project.name, "trip.2024");
    EXPECT_EQ(project.root, folder / "trip.2024_ombrelux");
  }
  const fs::path root = folder / "trip.2024_ombrelux";
  for (const char* made : {"frames", "colmap/sparse", "output"}) EXPECT_TRUE(fs::is_directory(root / made)) << made;
  EXPECT_THAT(topLevelKeys(root), ElementsAre("ingest", "sparse", "training", "name", "createdAt", "inputs"));

  const Project loaded = Project::load(root);
  EXPECT_THAT(loaded.createdAt, MatchesPattern("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z"));
  EXPECT_EQ(loaded.inputs.at(0).path, input + "//");

  const auto clip = writeFile(folder / "clip.one.MP4", "");
  const Project video = Project::create({{toUtf8(clip), InputKind::Video}}, folder / "deep/er");
  EXPECT_EQ(video.root, folder / "deep/er/clip.one_ombrelux");
  EXPECT_EQ(thrownText([] { Project::create({}, {}); }), "A project needs at least one input");
}

TEST(Project, RelativePathsAreStoredAbsolute) {
  const TempFolder folder;
  fs::create_directories(folder / "shots");
  const fs::path before = fs::current_path();
  fs::current_path(folder / "shots");
  const Project dot = Project::create({{".", InputKind::Images}}, {});
  const Project inner = Project::create({{"../shots/", InputKind::Images}}, "../out");
  fs::current_path(before);
  EXPECT_EQ(dot.name, "shots");
  EXPECT_EQ(dot.root, folder / "shots_ombrelux");
  EXPECT_EQ(inner.root, folder / "out/shots_ombrelux");
  EXPECT_EQ(Project::load(inner.root).inputs[0].path, toUtf8(folder / "shots"));
}

TEST(Project, CameraAndMatcherFollowTheInputs) {
  const TempFolder folder;
  const auto create = [&](const std::vector<InputKind>& kinds) {
    std::vector<InputSource> inputs;
    for (const InputKind kind : kinds) inputs.push_back({toUtf8(folder / "input"), kind});
    const SparseSettings sparse = Project::load(Project::create(inputs, folder.path()).root).sparse;
    return std::pair(sparse.cameraModel, sparse.matcher);
  };
  using enum InputKind;
  const auto sequential = Matcher::Sequential;
  EXPECT_EQ(create({Images, Images}), std::pair(std::string("OPENCV"), Matcher::Exhaustive));
  EXPECT_EQ(create({Video360, Images}), std::pair(std::string("OPENCV"), sequential));
  EXPECT_EQ(create({DualFisheye}), std::pair(std::string("OPENCV_FISHEYE"), sequential));
}

TEST(Project, DatasetsNeedTheirImages) {
  const TempFolder folder;
  const auto dataset = folder / "scan";
  writeFile(dataset / "sparse/0/cameras.bin", "");
  EXPECT_EQ(thrownText([&] { Project::fromDataset(dataset, {}); }),
            "No COLMAP model in " + toUtf8(dataset) +
                ". Choose the folder holding images/ and sparse/0 (not sparse/0 itself).");
  writeFile(dataset / "sparse/0/images.bin", "");
  EXPECT_THAT(thrownText([&] { Project::fromDataset(dataset, {}); }),
              StartsWith("Found a model in " + toUtf8(dataset) + " but no images/ beside it."));
  fs::create_directories(dataset / "images");
  const Project project = Project::load(Project::fromDataset(dataset, {}).root);
  EXPECT_EQ(project.root, folder / "scan_ombrelux");
  EXPECT_EQ(project.externalDataset, toUtf8(dataset));
  EXPECT_EQ(topLevelKeys(project.root).back(), "externalDataset");
}

TEST(Project, EverythingTheStagesRecordSurvives) {
  const TempFolder folder;
  const auto recorded = nlohmann::ordered_json::parse(
      R"({"name":"nämé \"quoted\"","inputs":[{"path":"/a b/写.insv","kind":"dualfisheye"},)"
      R"({"path":"/c","kind":"video360"}],"knownIntrinsics":[700.25,701.0,512.0,511.5],)"
      R"("extraction":{"groups":[{"name":"front","images":["f/1.jpg","f/2.jpg"],"cameraModel":"OPENCV_FISHEYE",)"
      R"("cameraParams":[1.5,2.0],"usesFisheyeMask":true,"rig":[{"suffix":"_v00",)"
      R"("rotation":[1.0,0.0,0.0,0.0]},{"suffix":"_lens1"}]}],"lensSize":1920,)"
      R"("positions":{"f/1.jpg":[47.1234567,-8.5,431.5]}},)"
      R"("georeference":{"origin":{"latitude":47.1234567,"longitude":-8.5,"altitude":431.5},"datum":"WGS 84",)"
      R"("axes":{"x":"east","y":"north","z":"up"},"unit":"metre","metresPerUnit":3.25,"positions":45,"agreeing":42,)"
      R"("residual":{"median":0.8,"p90":2.1}}})");
  loadText(folder, recorded.dump()).save();
  EXPECT_FALSE(fs::exists(folder / "project.json.tmp"));
  const auto saved = nlohmann::ordered_json::parse(readFile(folder / "project.json"));
  for (const auto& [key, value] : recorded.items()) EXPECT_EQ(saved.at(key), value);
}

TEST(Project, ReadsWhatIsThereAndKeepsDefaults) {
  const TempFolder folder;
  EXPECT_EQ(loadText(folder, "{}").training.iterations, 7000);
  const Project project = loadText(folder, R"({"inputs":[{"path":"/a","kind":"foo"},{"path":"/b"}]})");
  EXPECT_EQ(project.inputs.at(0).kind, InputKind::Images);
  EXPECT_EQ(project.inputs.at(1).path, "/b");
  for (const char* ignored : {"[1,2,3]", "[1,2,3,4,5]", "\"wide\"", "null"}) {
    EXPECT_FALSE(loadText(folder, std::string(R"({"knownIntrinsics":)") + ignored + "}").knownIntrinsics);
  }
}

TEST(Project, DamagedFilesSayWhereAndWhy) {
  const TempFolder folder;
  const std::string where = toUtf8(folder.path());
  EXPECT_EQ(thrownText([&] { Project::load(folder.path()); }), "No project.json in " + where);
  EXPECT_FALSE(Project::isProject(folder.path()));
  fs::create_directories(folder / "sub/project.json");
  EXPECT_FALSE(Project::isProject(folder / "sub"));

  const std::string damaged = "project.json in " + where + " is damaged: ";
  for (const char* text :
       {"", "{", "// note\n{}", "[]", "7", R"({"name":7})", R"({"inputs":{}})", R"({"inputs":[{"kind":"video"}]})",
        R"({"inputs":["/a"]})", R"({"ingest":3})", R"({"knownIntrinsics":[1,2,3,"x"]})",
        R"({"extraction":{"groups":[1]}})", R"({"extraction":{"groups":[{"cameraParams":["x"]}]}})",
        R"({"extraction":{"positions":{"a":[1,2]}}})", "{\"name\":\"\xff\"}"}) {
    EXPECT_THAT(thrownText([&] { loadText(folder, text); }), StartsWith(damaged)) << text;
  }
  EXPECT_EQ(thrownText([&] { loadText(folder, R"({"training":{"iterations":"x"}})"); }),
            damaged + "\"iterations\" is not a number");
}

TEST(Project, FailedSaveKeepsTheOldFile) {
  const TempFolder folder;
  Project project = loadText(folder, R"({"name":"old"})");
  project.name = "new";
  if (!test::kWindows) {
    fs::create_symlink("/dev/full", folder / "project.json.tmp");
    EXPECT_EQ(thrownText([&] { project.save(); }), "Cannot write " + toUtf8(folder / "project.json.tmp"));
  }
  EXPECT_EQ(Project::load(folder.path()).name, "old");
  EXPECT_FALSE(fs::exists(fs::symlink_status(folder / "project.json.tmp")));
  project.name = "\xff";
  EXPECT_THAT(thrownText([&] { project.save(); }), HasSubstr("not UTF-8"));
  EXPECT_EQ(Project::load(folder.path()).name, "old");
  project.name = "new";
  project.root = folder / "gone";
  EXPECT_EQ(thrownText([&] { project.save(); }), "Cannot write " + toUtf8(folder / "gone/project.json.tmp"));
  project.root = folder / "project.json/below";
  EXPECT_THAT(thrownText([&] { project.ensureLayout(); }), StartsWith("Cannot make the folder "));
}

}  // namespace
}  // namespace quor
