#include "pipeline/batch/batch_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace quor {
namespace {

using nlohmann::json;
using test::readFile;
using test::thrownText;
using test::writeFile;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(BatchFile, KeepsWhatItReadsThroughASave) {
  test::TempFolder folder;
  const auto file = writeFile(folder / "queue.json", R"({
    "destination": "projects", "colour": "blue",
    "items": [
      {"sources": [{"path": "../clips/a.mp4", "kind": "video", "trim": [1, 2]}, {"path": "/photos/é", "kind": "foo"}],
       "selection": "Größe", "ingest": {"targetFrameCount": 7, "newer": 1}, "training": {"technique": "MCMC"},
       "state": "failed", "note": "no luck", "projectRoot": "projects/a_ombrelux", "priority": 3},
      {"colmapImport": "sets/b/", "state": "running", "sparse": {"matcher": "vocab"}},
      {"sources": [{"path": "photos"}]}]})");
  Batch batch = Batch::load(file);
  EXPECT_EQ(batch.destination, folder / "projects");
  ASSERT_EQ(batch.items.size(), 3u);
  const BatchItem& a = batch.items[0];
  EXPECT_EQ(a.sources.at(0).path, toUtf8(folder.path().parent_path() / "clips" / "a.mp4"));
  EXPECT_EQ(a.sources.at(0).kind, InputKind::Video);
  EXPECT_EQ(a.sources.at(1).kind, InputKind::Images);
  EXPECT_EQ(std::tuple(a.name(), a.state, a.note), std::tuple("Größe", ItemState::Failed, "no luck"));
  EXPECT_EQ(a.projectRoot, folder / "projects/a_ombrelux");
  EXPECT_EQ(std::tuple(a.ingest.targetFrameCount, a.training.technique), std::tuple(7, gs::Technique::Mcmc));
  const BatchItem& b = batch.items[1];
  EXPECT_EQ(std::tuple(b.colmapImport, b.name(), b.state),
            std::tuple(toUtf8(folder / "sets/b"), "b", ItemState::Waiting));
  EXPECT_EQ(b.sparse.matcher, Matcher::VocabTree);
  // As a new project of photographs has it.
  EXPECT_EQ(batch.items[2].sparse.matcher, Matcher::Exhaustive);

  batch.items[0].state = ItemState::Finished;
  batch.items[0].note = "12 splats";
  batch.items[1].projectRoot = folder / "projects/b_ombrelux";
  batch.save();
  const json saved = json::parse(readFile(file));
  EXPECT_EQ(saved["destination"], "projects");
  EXPECT_EQ(saved["colour"], "blue");
  const json& first = saved["items"][0];
  EXPECT_EQ(first["sources"][0], json::parse(R"({"path": "../clips/a.mp4", "kind": "video", "trim": [1, 2]})"));
  EXPECT_EQ(std::tuple(first["ingest"]["newer"], first["ingest"]["targetFrameCount"], first["priority"]),
            std::tuple(1, 7, 3));
  EXPECT_EQ(std::tuple(first["state"], first["note"]), std::tuple("finished", "12 splats"));
  EXPECT_EQ(saved["items"][1]["state"], "waiting");
  EXPECT_EQ(saved["items"][1]["projectRoot"], toUtf8(folder / "projects/b_ombrelux"));
  EXPECT_THAT(readFile(file), StartsWith("{\n  \"destination\""));
}

TEST(BatchFile, ReadsWhatIsMissingAndRefusesWhatIsWrong) {
  test::TempFolder folder;
  EXPECT_EQ(thrownText([&] { Batch::load(folder.path()); }), "No batch.json in " + toUtf8(folder.path()));
  EXPECT_EQ(thrownText([&] { Batch::load(folder / "no.json"); }),
            "No such file or folder: " + toUtf8(folder / "no.json"));
  const auto file = writeFile(folder / "batch.json", "{}");
  const Batch empty = Batch::load(folder.path());
  EXPECT_EQ(std::tuple(empty.file, empty.destination, empty.items.size()), std::tuple(file, folder.path(), 0u));
  for (const char* wrong : {"", "[]", "{", R"({"items": {}})", R"({"items": [1]})", R"({"items": [{"sources": 1}]})",
                            R"({"items": [{"sources": [{}]}]})", R"({"destination": 1})"}) {
    writeFile(file, wrong);
    EXPECT_THAT(thrownText([&] { Batch::load(file); }), StartsWith(toUtf8(file) + " is damaged: ")) << wrong;
  }
}

TEST(BatchFile, IsComposedFromTheCapturesInAFolder) {
  test::TempFolder folder;
  const auto compose = [](const std::filesystem::path& of) {
    std::vector<std::string> names;
    for (const BatchItem& item : Batch::compose(of, of / "out").items) {
      names.push_back(item.name() + (item.colmapImport.empty() ? "" : " (dataset)"));
    }
    return names;
  };
  for (const char* file : {"b photos/deep/1.jpg", "clip.mp4", "d/images/1.jpg", "d/sparse/0/cameras.txt",
                           "d/sparse/0/images.txt", "d/sparse/0/points3D.txt", "x_ombrelux/project.json", "loose.jpg",
                           ".hidden/1.jpg", "notes/a.txt", "out/e_ombrelux/project.json"}) {
    writeFile(folder / file, "");
  }
  EXPECT_THAT(compose(folder.path()), ::testing::ElementsAre("b photos", "clip.mp4", "d (dataset)"));
  const Batch batch = Batch::compose(folder.path(), folder / "out");
  EXPECT_EQ(batch.items[0].sparse.matcher, Matcher::Exhaustive);
  batch.save();
  EXPECT_EQ(Batch::load(folder / "out").items.size(), 3u);

  EXPECT_THAT(compose(folder / "d"), ::testing::ElementsAre("d (dataset)"));
  EXPECT_THAT(compose(folder / "b photos/deep"), ::testing::ElementsAre("deep"));
  EXPECT_THAT(thrownText([&] { compose(folder / "notes"); }), StartsWith("No captures in "));
  EXPECT_THAT(thrownText([&] { compose(folder / "x_ombrelux"); }), HasSubstr("is already an Ombrelux project"));
}

}  // namespace
}  // namespace quor
