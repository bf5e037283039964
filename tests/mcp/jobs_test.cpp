#include "mcp/server_fixture.h"
#include "project/project.h"
#include "support/matches_pattern.h"
#include "support/platform.h"

namespace quor::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class JobsTest : public ServerTest {
 protected:
  JobsTest() { writeBareDataset(set_); }

  void finish(const std::string& job) {
    gs::TrainResult result;
    result.splats = 1234;
    result.steps = 50;
    result.ply = root_ / "output/scene.ply";
    result.evaluation = {27.5f, 0.9f, 0.01f, 3};
    trainer_.end(gs::TrainState::Done, result);
    waitUntilEnded(job);
  }

  const std::filesystem::path set_ = folder_ / "set";
  const std::filesystem::path root_ = folder_ / "set_ombrelux";
  const std::string project_ = toUtf8(root_);
};

TEST_F(JobsTest, ABuildIsFollowedFromItsStartToItsResult) {
  const Json started = told("ombrelux_import", {{"reconstruction", toUtf8(set_)}, {"iterations", 50}});
  EXPECT_EQ(started["message"], "Started. Poll ombrelux_job_status with this job id.");
  EXPECT_EQ(started["project"], project_);
  const std::string job = started["job"];
  EXPECT_THAT(job, MatchesPattern("job-[0-9a-f]{8}"));
  trainer_.waitUntilStarted();
  EXPECT_EQ(trainer_.job().iterations, 50);

  gs::TrainStatus status;
  status.state = gs::TrainState::Training;
  status.step = 10;
  status.iterations = 50;
  status.splats = 99;
  status.secondsLeft = 200;
  trainer_.setStatus(status);
  Json document;
  EXPECT_TRUE(waitUntil([&] {
    document = told("ombrelux_job_status", {{"job", job}});
    return document.value("stage", "") == "training · Step 10 of 50";
  })) << document;
  EXPECT_EQ(document["detail"], "Train Gaussians, about 4 minutes left");
  EXPECT_EQ(document["stage_progress"], 0.2);
  EXPECT_EQ(std::tuple(document["state"], document["project"], document["iteration"], document["total_iterations"],
                       document["splats"]),
            std::tuple("running", project_, 10, 50, 99));
  EXPECT_THAT(refusal("ombrelux_job_result", {{"job", job}}), HasSubstr("is still running"));

  finish(job);
  document = told("ombrelux_job_status", {{"job", job}});
  EXPECT_EQ(std::tuple(document["state"], document["detail"]),
            std::tuple("finished", "1234 splats after 50 steps, held-out PSNR 27.50 dB."));
  const Json result = told("ombrelux_job_result", {{"job", job}});
  EXPECT_EQ(std::tuple(result["project"], result["splats"], result["iterations"], result["psnr"]),
            std::tuple(project_, 1234, 50, 27.5));
  EXPECT_EQ(told("ombrelux_project_info", {{"project", project_}})["held-out"], (Json{{"PSNR", 27.5}, {"SSIM", 0.9}}));
}

TEST_F(JobsTest, OneBuildAtATimeAndOtherRequestsMeanwhile) {
  const std::string job = import(set_);
  const std::string busy = "import job is already running (" + job +
                           "). Ombrelux builds one project at a time; poll it with ombrelux_job_status and start this "
                           "one when it finishes.";
  EXPECT_EQ(refusal("ombrelux_run", {{"media", "/nowhere"}}), busy);
  EXPECT_EQ(refusal("ombrelux_train", {{"project", project_}}), busy);
  EXPECT_EQ(refusal("ombrelux_batch", {{"batch", "/nowhere"}}),
            "import job is already running (" + job +
                "); poll it with ombrelux_job_status and start this one when it finishes.");
  EXPECT_EQ(told("ombrelux_project_info", {{"project", project_}})["name"], "set");
  EXPECT_EQ(
      refusal("ombrelux_job_status", {{"job", "job-00000000"}}),
      "No job job-00000000. Jobs live only as long as this server, so one started by an earlier session is gone.");
  finish(job);
  EXPECT_NE(import(set_), job);
}

TEST_F(JobsTest, AFailureIsTheToolsSentence) {
  const std::string job = import(set_);
  trainer_.end(gs::TrainState::Failed, {}, "The COLMAP model has no registered images.");
  waitUntilEnded(job);
  EXPECT_EQ(state(job), "failed");
  EXPECT_EQ(refusal("ombrelux_job_result", {{"job", job}}), "The COLMAP model has no registered images.");

  std::filesystem::remove_all(root_);
  noDevice_ = "No Vulkan GPU found. Update the graphics driver.";
  EXPECT_EQ(refusal("ombrelux_import", {{"reconstruction", toUtf8(set_)}}), noDevice_);
  EXPECT_FALSE(std::filesystem::exists(root_));  // nothing was begun
}

TEST_F(JobsTest, TheClientsEndStopsTheJobWhereItsCheckpointIsWritten) {
  const std::string job = import(set_);
  server_.finish();
  EXPECT_EQ(state(job), "finished");
  EXPECT_THAT(told("ombrelux_job_status", {{"job", job}})["detail"].get<std::string>(), HasSubstr("stopped early"));

  const std::string again = import(set_);
  gs::TrainStatus loading;
  loading.state = gs::TrainState::Loading;
  trainer_.setStatus(loading);
  bool gone = false;
  server_.serve({[](std::span<char>) -> size_t { return 0; }, [&](std::string_view) { return gone = true; }});
  EXPECT_EQ(refusal("ombrelux_job_result", {{"job", again}}), "Cancelled");
  EXPECT_FALSE(gone);
}

TEST_F(JobsTest, ATrainingGoesOnOnlyWhenAsked) {
  Project::fromDataset(set_, {});
  const auto trains = [&](const Json& arguments) {
    Json all = arguments;
    all["project"] = project_;
    const std::string job = told("ombrelux_train", all)["job"];
    trainer_.waitUntilStarted();
    finish(job);
    return trainer_.job();
  };
  EXPECT_EQ(trains({{"technique", "MCMC"}, {"iterations", 11}}).technique, gs::Technique::Mcmc);
  EXPECT_EQ(trains({{"resolution", 320}}).iterations, 11);  // kept
  EXPECT_FALSE(trainer_.job().resume);
  const std::string resumed = told("ombrelux_train", {{"project", project_}, {"resume", true}})["job"];
  waitUntilEnded(resumed);
  EXPECT_THAT(refusal("ombrelux_job_result", {{"job", resumed}}), StartsWith("Continue from checkpoint is on, but"));
  EXPECT_FALSE(trains({}).resume);
}

TEST_F(JobsTest, PathsThatBelongToAnotherToolAreSentThere) {
  Project::fromDataset(set_, {});
  EXPECT_EQ(refusal("ombrelux_run", {{"media", toUtf8(set_)}}),
            toUtf8(set_) + " holds a COLMAP reconstruction — use ombrelux_import for it.");
  EXPECT_EQ(refusal("ombrelux_run", {{"media", project_}}),
            project_ + " is already a Ombrelux project — call ombrelux_train on it instead.");
  EXPECT_EQ(refusal("ombrelux_train", {{"project", toUtf8(set_)}}),
            toUtf8(set_) +
                " is not a Ombrelux project — no project.json. Use ombrelux_run to build one from media, or "
                "ombrelux_import for a reconstruction solved elsewhere.");
  const std::string model = toUtf8(set_ / "sparse/0");
  EXPECT_EQ(refusal("ombrelux_import", {{"reconstruction", model}}),
            "Found a model in " + model +
                " but no images/ beside it. Pass the folder holding both images/ and the sparse model, not the model "
                "folder itself.");
  EXPECT_THAT(refusal("ombrelux_import", {{"reconstruction", model}, {"images", toUtf8(folder_.path())}}),
              HasSubstr("are not in images/ beside the model"));
  const std::string job =
      told("ombrelux_import", {{"reconstruction", model}, {"images", toUtf8(set_ / "images")}})["job"];
  trainer_.waitUntilStarted();
  EXPECT_EQ(trainer_.job().dataset, set_);
}

TEST_F(JobsTest, ABatchIsComposedOnceAndRunAsOneJob) {
  const Json composed = told("ombrelux_create_batch", {{"folder", toUtf8(folder_.path())}, {"iterations", 21}});
  EXPECT_EQ(composed["captures"], Json{"set"});
  const std::string file = composed["batch"];
  told("ombrelux_create_batch", {{"folder", toUtf8(folder_.path())}, {"iterations", 22}});  // nothing was lost

  const std::string job = told("ombrelux_batch", {{"batch", file}})["job"];
  trainer_.waitUntilStarted();
  EXPECT_EQ(trainer_.job().iterations, 22);
  const Json status = told("ombrelux_job_status", {{"job", job}});
  EXPECT_EQ(std::tuple(status["kind"], status["batch_item"], status["batch_items"], status["current_project"]),
            std::tuple("batch", 1, 1, project_));
  finish(job);
  const Json result = told("ombrelux_job_result", {{"job", job}});
  EXPECT_EQ(std::tuple(result["finished"], result["failed"], result["items"][0]["note"]),
            std::tuple(1, 0, "1234 splats - PSNR 27.50 dB"));
  EXPECT_EQ(
      refusal("ombrelux_create_batch", {{"folder", toUtf8(folder_.path())}}),
      file + " holds a batch that has been worked on. Run it with ombrelux_batch, or choose another destination.");
}

TEST_F(JobsTest, ABatchThatLosesTheGpuOpensItAgain) {
  const std::string file = told("ombrelux_create_batch", {{"folder", toUtf8(folder_.path())}})["batch"];
  const std::string job = told("ombrelux_batch", {{"batch", file}})["job"];
  trainer_.waitUntilStarted();
  const int before = opened_;
  trainer_.end(gs::TrainState::Failed, {}, "the GPU device was lost", Outcome::DeviceLost);
  trainer_.waitUntilStarted();
  EXPECT_EQ(opened_, before + 1);
  finish(job);
  EXPECT_EQ(state(job), "finished");
}

TEST_F(JobsTest, ProjectsAreFoundAndDescribed) {
  Project project = Project::fromDataset(set_, {});
  writeFile(
      project.sceneFile(),
      "ply\nformat ascii 1.0\nelement vertex 5\nproperty float x\nproperty float y\nproperty float z\nend_header\n");
  // As an earlier version has left it: the log is for reading, not for taking apart.
  writeFile(project.trainingLog(), "==== 2025  last\nheld-out    PSNR 27.12 dB, SSIM 0.9123, L1 0.0100 over 3 views\n");
  writeFile(folder_ / "deep/er/broken_ombrelux/project.json", "{");
  writeFile(folder_ / ".hidden/p/project.json", "{}");
  if (!kWindows) std::filesystem::create_directory_symlink(folder_.path(), folder_ / "deep/loop");
  const Json projects = told("ombrelux_list_projects", {{"folder", toUtf8(folder_.path())}})["projects"];
  ASSERT_EQ(projects.size(), 2u);
  EXPECT_THAT(projects[0]["error"].get<std::string>(), HasSubstr("is damaged"));
  const Json& found = projects[1];
  EXPECT_EQ(found, told("ombrelux_project_info", {{"project", project_}}));
  EXPECT_EQ(std::tuple(found["project"], found["registered_images"], found["splats"], found["technique"]),
            std::tuple(project_, 2, 5, "vanilla"));
  EXPECT_EQ(found["training_log"], toUtf8(project.trainingLog()));
  EXPECT_FALSE(found.contains("held-out"));
  writeFile(project.resultFile(), R"({"psnr": "high", "ssim": 1})");
  EXPECT_FALSE(told("ombrelux_project_info", {{"project", project_}}).contains("held-out"));
}

class ResourcesTest : public JobsTest {
 protected:
  ResourcesTest() {
    project_ = Project::fromDataset(set_, {});
    writeFile(project_.trainingLog(), "the log\n");
  }
  Json read(const std::string& uri) { return ask("resources/read", {{"uri", uri}}); }
  Json list() { return ask("resources/list")["result"]["resources"]; }
  void meet() { told("ombrelux_project_info", {{"project", toUtf8(project_.root)}}); }

  Project project_;
};

TEST_F(ResourcesTest, OffersTheLogsOfProjectsThatItHasMet) {
  const std::string uri = mcp::fileUri(project_.trainingLog());
  EXPECT_THAT(uri, MatchesPattern("file:///[A-Za-z0-9/._~:%-]*%20t%C3%A9%20[^ ]*/output/training\\.log"));
  EXPECT_TRUE(list().empty());
  const std::string refused =
      "Only the training logs of projects that this server has built, opened or listed can be read.";
  EXPECT_EQ(read(uri)["error"]["message"], refused);
  meet();
  ASSERT_EQ(list().size(), 1u);
  EXPECT_EQ(list()[0]["uri"], uri);
  EXPECT_EQ(read(uri)["result"]["contents"],
            Json::array({{{"uri", uri}, {"mimeType", "text/plain"}, {"text", "the log\n"}}}));
  const std::string root = mcp::fileUri(project_.root);
  for (const std::string& other :
       {root + "/project.json", root + "/output/../project.json", root + "/output/training.log%00", uri + "%",
        std::string("file:///etc/passwd"), toUtf8(project_.trainingLog())}) {
    EXPECT_EQ(read(other)["error"]["message"], refused) << other;
  }
}

TEST_F(ResourcesTest, DoesNotFollowALinkOutOfTheProject) {
  if (kWindows) GTEST_SKIP() << "links take rights that few have";
  meet();
  const std::filesystem::path log = project_.trainingLog();
  const auto refusedAs = [&] {
    EXPECT_TRUE(list().empty());
    return read(mcp::fileUri(log))["error"]["message"].get<std::string>();
  };
  const std::string sentence = "Could not read " + toUtf8(log);
  writeFile(folder_ / "elsewhere/training.log", "a secret");
  std::filesystem::remove(log);
  EXPECT_EQ(refusedAs(), sentence);
  std::filesystem::create_symlink(folder_ / "elsewhere/training.log", log);
  EXPECT_EQ(refusedAs(), sentence);
  std::filesystem::remove_all(project_.outputFolder());
  std::filesystem::create_directory_symlink(folder_ / "elsewhere", project_.outputFolder());
  EXPECT_EQ(refusedAs(), sentence);
}

TEST_F(ResourcesTest, GivesTheEndOfALongLog) {
  meet();
  std::string text;
  while (text.size() < 3 << 20) text += "a line of the log\n";
  writeFile(project_.trainingLog(), text + "\xff the end\n");
  const std::string read = this->read(mcp::fileUri(project_.trainingLog()))["result"]["contents"][0]["text"];
  EXPECT_LT(read.size(), 1u << 20);
  EXPECT_THAT(read, StartsWith("a line of the log\n"));
  EXPECT_THAT(read, ::testing::EndsWith("\xef\xbf\xbd the end\n"));
}

}  // namespace
}  // namespace quor::test
