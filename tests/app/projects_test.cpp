#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "pipeline/result_document.h"
#include "support/child_program.h"
#include "support/small_capture.h"

namespace quor::test {
namespace {

using ::testing::HasSubstr;

const std::vector<std::string> kNoDriver = {"VK_DRIVER_FILES=/nonexistent", "VK_ICD_FILENAMES=/nonexistent"};

nlohmann::json readJson(const std::filesystem::path& path) {
  return nlohmann::json::parse(readFile(path));
}

void expectFailure(const Ended& ended, const std::string& message) {
  EXPECT_EQ(ended.exitCode, 1) << message;
  EXPECT_EQ(ended.out, "");
  EXPECT_EQ(ended.err, "error: " + message + "\n");
}

TEST(Projects, RefusesWhatCannotBeTrained) {
  TempFolder folder;
  writeSmallCapture(folder / "set");
  writeFile(folder / "old/project.json", "{}");
  writeFile(folder / "bad/project.json", "{]");
  writeFile(folder / "empty/readme.txt", "");
  const auto at = [&](const char* name) { return toUtf8(folder / name); };

  expectFailure(runCli({"import", at("none")}), "No such file or folder: " + at("none"));
  expectFailure(runCli({"run", at("old")}),
                at("old") + " is already a Ombrelux project — use `train` to train it again.");
  expectFailure(runCli({"run", at("set/images"), at("empty")}), "No images or videos in " + at("empty"));
  expectFailure(runCli({"import", at("set/sparse/0")}),
                "Found a model in " + at("set/sparse/0") +
                    " but no images/ beside it. Pass the folder that holds both images/ and the sparse model, not "
                    "the model folder itself.");
  expectFailure(runCli({"train", at("set"), "--from", "sparse"}), "--from needs a Ombrelux project, not a dataset.");
  expectFailure(runCli({"train", at("empty")}),
                at("empty") + " is neither a Ombrelux project nor a COLMAP dataset (images/ + sparse/0).");
  EXPECT_THAT(runCli({"train", at("bad")}).err, HasSubstr("error: project.json in " + at("bad") + " is damaged: "));
  EXPECT_FALSE(std::filesystem::exists(folder / "set_ombrelux"));
}

TEST(Projects, ANewProjectIsSavedBeforeADeviceIsNeeded) {
  TempFolder folder;
  writeSmallCapture(folder / "set");
  const Ended ended =
      runCli({"import", toUtf8(folder / "set") + "/", "--out", toUtf8(folder / "made"), "--technique", "MCMC",
              "--iterations", "12", "--budget", "5000000000", "--sh", "1", "--splat", "--no-eval", "--quiet"},
             kNoDriver);
  EXPECT_EQ(ended.exitCode, 1);
  EXPECT_EQ(ended.out, "");
  EXPECT_THAT(ended.err, ::testing::MatchesRegex("error: [^\n]*\n"));

  const nlohmann::json json = readJson(folder / "made/set_ombrelux/project.json");
  EXPECT_EQ(json["externalDataset"], toUtf8(folder / "set"));
  EXPECT_EQ(json["training"]["technique"], "mcmc");
  EXPECT_EQ(json["training"]["iterations"], 12);
  EXPECT_EQ(json["training"]["splatBudget"], 5000000000);
  EXPECT_EQ(json["training"]["exportSplat"], true);
  EXPECT_EQ(json["training"]["evalMode"], false);
}

TEST(Projects, AnEarlierProjectSurvivesAnImportThatFails) {
  TempFolder folder;
  writeSmallCapture(folder / "a/set");
  const auto import = [&](const char* set, const std::vector<std::string>& environment = {}) {
    return runCli({"import", toUtf8(folder / set), "--out", toUtf8(folder / "made"), "--quiet"}, environment);
  };
  const std::filesystem::path made = folder / "made/set_ombrelux";
  import("a/set", kNoDriver);
  const std::string earlier = readFile(made / "project.json") + "\n";  // not as an import would write it
  writeFile(made / "project.json", earlier);

  EXPECT_EQ(import("a/set", kNoDriver).exitCode, 1);
  EXPECT_EQ(readFile(made / "project.json"), earlier);
  std::filesystem::copy(folder / "a", folder / "b", std::filesystem::copy_options::recursive);
  expectFailure(import("b/set"), toUtf8(made) + " is the project of another capture, " + toUtf8(folder / "a/set") +
                                     ". Choose another folder with --out.");
  writeFile(folder / "a/set/sparse/0/cameras.txt", "1 PINEHOLE 64 48 60 60 32 24\n");
  expectFailure(import("a/set"), "Unknown COLMAP camera model PINEHOLE");
  EXPECT_EQ(readFile(made / "project.json"), earlier);

  std::filesystem::remove_all(folder / "a");
  expectFailure(runCli({"train", toUtf8(made), "--quiet"}),
                "The dataset of this project, " + toUtf8(folder / "a/set") +
                    ", is no longer there. Move it back, or import it from where it is now.");
  EXPECT_EQ(readFile(made / "project.json"), earlier);
}

TEST(Projects, TrainOverwritesOnlyWhatIsGiven) {
  TempFolder folder;
  const std::string path = toUtf8(folder / "p");
  writeFile(folder / "p/project.json",
            R"({"training": {"iterations": 900, "exportSplat": true, "continueFromCheckpoint": true}})");
  const std::string before = readFile(folder / "p/project.json");
  for (const auto& noDevice : {runCli({"train", path, "--sh", "2"}, kNoDriver),
                               runCli({"train", path, "--sh", "2", "--device", "999"}, {"QUOR_DEVICE=999"})}) {
    EXPECT_EQ(noDevice.exitCode, 1);
    EXPECT_EQ(readFile(folder / "p/project.json"), before);
  }

  const Ended ended = runCli({"train", path, "--sh", "2", "--fresh"});
  EXPECT_EQ(ended.exitCode, 1);
  EXPECT_EQ(ended.out, "");
  EXPECT_THAT(ended.err, HasSubstr("Project: " + path + "\n"));
  EXPECT_THAT(ended.err, HasSubstr("\nerror: There is no camera solve to train from. Run Camera solve first.\n"));
  const nlohmann::json training = readJson(folder / "p/project.json")["training"];
  EXPECT_EQ(training["shDegree"], 2);
  EXPECT_EQ(training["iterations"], 900);
  EXPECT_EQ(training["exportSplat"], true);
  EXPECT_EQ(training["continueFromCheckpoint"], false);

  expectFailure(runCli({"train", path, "--from", "frames", "--quiet"}), "The project has no input media.");
}

void expectMisplaced(const std::vector<std::string>& arguments, const std::string& sentence) {
  const Ended ended = runCli(arguments);
  EXPECT_EQ(ended.exitCode, 2);
  EXPECT_EQ(ended.out, "");
  EXPECT_THAT(ended.err, ::testing::StartsWith("error: " + sentence + "\n\n"));
}

TEST(Projects, TrainTakesOnlyWhatItsProjectCanUse) {
  TempFolder folder;
  writeSmallCapture(folder / "set");
  const std::string clip = toUtf8(folder / "gone.mp4");
  const std::string path = toUtf8(folder / "p");
  const auto write = [&](const char* name, const nlohmann::json& json) {
    writeFile(folder / name / "project.json", json.dump());
  };
  write("p", {{"inputs", {{{"path", clip}, {"kind", "video"}}, {{"path", "/photos"}, {"kind", "images"}}}}});
  write("wrapped", {{"externalDataset", toUtf8(folder / "set")}});
  const std::string before = readFile(folder / "p/project.json");
  expectMisplaced({"train", path, "--kind", "video360"},
                  "--kind is an option of run and train --from frames, not of train without --from");
  expectMisplaced({"train", toUtf8(folder / "wrapped"), "--frames", "9"},
                  "--frames is an option of run and train of a project made from media, not of train of an imported "
                  "project");
  EXPECT_EQ(readFile(folder / "p/project.json"), before);

  // The cure for a video that was taken for another kind: the photographs stay, what follows from the kind changes.
  EXPECT_EQ(runCli({"train", path, "--from", "frames", "--kind", "dualfisheye", "--quiet"}).exitCode, 1);
  nlohmann::json json = readJson(folder / "p/project.json");
  EXPECT_EQ(json["inputs"][0]["kind"], "dualfisheye");
  EXPECT_EQ(json["inputs"][1]["kind"], "images");
  EXPECT_EQ(json["sparse"]["cameraModel"], "OPENCV");
  json["inputs"].erase(1);
  json["sparse"]["cameraModel"] = "OPENCV_FISHEYE";
  write("p", json);
  const Ended sphere = runCli({"train", path, "--from", "frames", "--kind", "video360"});
  EXPECT_THAT(sphere.err, HasSubstr("input " + clip + " is no longer there"));
  EXPECT_EQ(readJson(folder / "p/project.json")["sparse"]["cameraModel"], "PINHOLE");
  expectFailure(runCli({"train", path, "--from", "frames", "--kind", "images", "--quiet"}),
                "This project has no images among its inputs, so --kind images fits none of them.");

  const Ended later = runCli({"train", path, "--frames", "9"});
  EXPECT_THAT(later.err, HasSubstr("warning: --frames is kept, but counts only when frames are made again"));
  EXPECT_EQ(readJson(folder / "p/project.json")["ingest"]["targetFrameCount"], 9);
}

TEST(Projects, APreferredDeviceThatIsGoneGivesWayToAnother) {
  TempFolder folder;
  writeFile(folder / "p/project.json", "{}");
  writeFile(folder / "home/Ombrelux/settings.json", R"({"deviceIndex": 99})");
  const auto train = [&](const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {"train", toUtf8(folder / "p"), "--quiet"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runCli(arguments, {"XDG_DATA_HOME=" + toUtf8(folder / "home")});
  };
  const std::string noSolve = "error: There is no camera solve to train from. Run Camera solve first.\n";
  EXPECT_THAT(train({}).err, ::testing::MatchesRegex("[^\n]*warning: The graphics device that was chosen cannot be "
                                                     "used [^\n]*: another one is taken.\n(.*\n)*" +
                                                     noSolve));
  EXPECT_EQ(train({"--device", "-1"}).err.find("graphics device"), std::string::npos);
  EXPECT_THAT(train({"--device", "99"}).err, ::testing::Not(HasSubstr(noSolve)));
}

TEST(Projects, DevicesAreListedOrTheReasonIsGiven) {
  const Ended listed = runCli({"devices"});
  EXPECT_EQ(listed.exitCode, 0);
  EXPECT_THAT(listed.out, ::testing::StartsWith("[0] "));
  const Ended none = runCli({"devices"}, kNoDriver);
  EXPECT_EQ(none.exitCode, 1);
  EXPECT_EQ(none.out, "");
  EXPECT_THAT(none.err, ::testing::StartsWith("error: Could not list Vulkan devices: "));
}

TEST(ResultDocument, CanBeWrittenForAFolderThatIsNotUtf8) {
  Project project;
  project.root = fromUtf8("/captures/caf\xe9");  // Latin-1, which no JSON can hold
  EXPECT_EQ(nlohmann::json::parse(resultDocument(project, {})).size(), 4u);
}

}  // namespace
}  // namespace quor::test
