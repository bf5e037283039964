#include "settings/settings.h"

#include <gmock/gmock.h>

#include "support/temp_folder.h"

namespace quor {
namespace {

using Json = nlohmann::ordered_json;
using testing::ElementsAre;

struct Records {
  IngestSettings ingest;
  SparseSettings sparse;
  TrainingSettings training;

  std::string text() const {
    Json json;
    toJson(json, ingest, sparse, training);
    return json.dump();
  }
};

Records read(const std::string& text, Records records = {}) {
  fromJson(Json::parse(text), records.ingest, records.sparse, records.training);
  return records;
}

// Every member differs from its default, so one that is not read or not written shows.
TEST(Settings, EveryMemberSurvivesTheRoundTripInItsPlace) {
  const std::string text =
      R"({"ingest":{"targetFrameCount":1,"maxDimension":2,"blurRejection":false,"blurThreshold":0.1,)"
      R"("jpegQuality":3,"viewsPerFrame":4,"fieldOfView":5.0,"viewResolution":6,"includePoles":true,)"
      R"("pitchOffset":-7.5,"fisheyeFieldOfView":8.0,"fisheyeMaskBelow":9.0,"fisheyeCropBottom":0.3,)"
      R"("fisheyeEdgeMargin":0.4,"fisheyeCropEdges":0.5,)"
      R"("viewsFollowSphere":true},)"
      R"("sparse":{"matcher":"vocab_tree","cameraModel":"PINHOLE","singleCamera":false,"maxImageSize":10,)"
      R"("maxFeatures":11,"useGPU":true,"gpuMatching":false,"mapper":"global","sequentialOverlap":12,)"
      R"("vocabTreePath":"/é/tree.bin","retries":"off","pairs":"likely","georeference":false},)"
      R"("training":{"technique":"mcmc","iterations":13,"shDegree":1,"numDownscales":0,"ssimWeight":0.3,)"
      R"("refineEvery":14,"evalMode":false,"testEvery":15,"exportPLY":false,"exportSplat":true,)"
      R"("splatBudget":18446744073709551615,"trainingResolution":16,"background":[0.1,0.2,1.0],)"
      R"("visualizerEnabled":false,"continueFromCheckpoint":true}})";
  EXPECT_EQ(read(text).text(), text);
  EXPECT_THAT(Records{}.text(), testing::HasSubstr(R"("ssimWeight":0.2,)"));  // not a float's 0.20000000298
}

TEST(Settings, ReadingIsAMergeOntoWhatIsThere) {
  Records before;
  before.training.iterations = 5;
  before.training.background = {0.1f, 0.2f, 0.3f};
  before.training.technique = gs::Technique::Mcmc;
  before.sparse.matcher = Matcher::Exhaustive;
  EXPECT_EQ(read("{}", before).text(), before.text());
  EXPECT_EQ(read(R"({"training":null,"sparse":{"matcher":"Sequential","new key":[]},)"
                 R"("training":{"technique":"splendid","background":[],"ssimWeight":null}})",
                 before)
                .text(),
            before.text());
  EXPECT_THAT(read(R"({"training":{"background":[1]}})", before).training.background, ElementsAre(1.f, .2f, .3f));
  EXPECT_THAT(read(R"({"training":{"background":[1,0,0.5,7]}})", before).training.background,
              ElementsAre(1.f, 0.f, .5f));
}

TEST(Settings, NumbersThatDoNotFitBecomeTheNearest) {
  const Records records =
      read(R"({"ingest":{"targetFrameCount":1e300,"maxDimension":-99999999999,"jpegQuality":99999999999999999999,)"
           R"("viewsPerFrame":2.9,"viewResolution":4294967296},"training":{"shDegree":9,"splatBudget":-1}})");
  const IngestSettings& ingest = records.ingest;
  EXPECT_THAT((std::vector{ingest.targetFrameCount, ingest.maxDimension, ingest.jpegQuality, ingest.viewsPerFrame,
                           ingest.viewResolution}),
              ElementsAre(INT32_MAX, INT32_MIN, INT32_MAX, 2, INT32_MAX));
  EXPECT_EQ(records.training.shDegree, 3);
  EXPECT_EQ(records.training.splatBudget, 0u);
  EXPECT_EQ(read(R"({"training":{"splatBudget":18446744073709551616.0}})").training.splatBudget, UINT64_MAX);
}

TEST(Settings, WrongTypesAreNamed) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"training":{"iterations":"many"}})", "\"iterations\" is not a number"},
      {R"({"training":{"iterations":true}})", "\"iterations\" is not a number"},
      {R"({"training":{"evalMode":1}})", "\"evalMode\" is not true or false"},
      {R"({"training":{"background":[0,"red"]}})", "\"background\" is not a number"},
      {R"({"sparse":{"matcher":1}})", "\"matcher\" is not a text"},
      {R"({"sparse":[]})", "\"sparse\" is not an object"}};
  for (const auto& [json, text] : rows) EXPECT_EQ(test::thrownText([&, json = json] { read(json); }), text);
}

}  // namespace
}  // namespace quor
