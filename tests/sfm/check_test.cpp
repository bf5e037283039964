// Verdicts on made-up solves: a walk around an object of which the database holds the true matches, solved right,
// folded, or in part.
#include <gmock/gmock.h>
#include <sqlite3.h>

#include <array>
#include <numbers>
#include <random>

#include "base/files/paths.h"
#include "base/text/text.h"
#include "sfm/check/coverage.h"
#include "sfm/check/verdict.h"
#include "sfm/match/colmap_database.h"
#include "sfm/refine/pose.h"
#include "sfm/refine/projection.h"
#include "sfm/retry/cut.h"
#include "sfm/retry/pair_choice.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using Eigen::Quaterniond;
using Eigen::Vector3d;
using gs::colmap::Observation;
using refine::Pose;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr double kDegree = std::numbers::pi / 180;

// A camera that looks at the middle from an angle around it.
Pose lookFrom(double degrees, double distance = 4) {
  const Quaterniond turn(Eigen::AngleAxisd(degrees * kDegree, Vector3d::UnitY()));
  return {turn, Vector3d(0, 0, distance)};
}

class Walk : public ::testing::Test {
 protected:
  static constexpr size_t kImages = 24;
  static constexpr double kStep = 15;  // degrees

  Walk() {
    model.cameras[1] = {1, refine::Pinhole::kId, 400, 400, {400, 400, 200, 200}};
    std::mt19937 random(3);
    std::normal_distribution<double> normal;
    for (size_t p = 0; p < 900; ++p) {
      const Vector3d point = Vector3d(normal(random), normal(random), normal(random)).normalized();
      points_.push_back(point);
      for (size_t k = 0; k < 3; ++k) {
        model.points.positions.push_back(static_cast<float>(point[static_cast<long>(k)]));
        model.points.colors.push_back(90);
      }
    }
    for (size_t i = 0; i < kImages; ++i) {
      gs::colmap::Image image;
      image.id = static_cast<uint32_t>(i + 1);
      image.cameraId = 1;
      image.name = formatText("f%05zu.jpg", i + 1);
      truth_.push_back(lookFrom(kStep * static_cast<double>(i)));
      setPose(image, truth_.back());
      model.images.push_back(image);
      observe(i);
    }
    writeDatabase();
  }

  // Only the near half of the ball is seen, so that neighbours share points and opposite images none.
  void observe(size_t image) {
    gs::colmap::Observations& list = observations.emplace_back();
    features_.emplace_back();
    for (size_t p = 0; p < points_.size(); ++p) {
      const Vector3d at = truth_[image].rotation * points_[p] + truth_[image].translation;
      if (at.z() > 3.8) continue;
      features_[image][p] = static_cast<uint32_t>(list.size());
      list.push_back({400 * at.x() / at.z() + 200, 400 * at.y() / at.z() + 200, p});
    }
  }

  void run(const std::string& sql) {
    sqlite3* file = nullptr;
    ASSERT_EQ(sqlite3_open(toUtf8(database).c_str(), &file), SQLITE_OK);
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(file, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK) << (message ? message : "");
    sqlite3_close(file);
  }

  void writeDatabase() {
    std::string sql =
        "BEGIN; CREATE TABLE images (image_id INTEGER, name TEXT, camera_id INTEGER);"
        "CREATE TABLE descriptors (image_id INTEGER, rows INTEGER, cols INTEGER, data BLOB);"
        "CREATE TABLE two_view_geometries (pair_id INTEGER, rows INTEGER, data BLOB);";
    for (size_t i = 0; i < kImages; ++i) {
      sql += formatText("INSERT INTO images VALUES (%zu, 'f%05zu.jpg', 1);", i + 1, i + 1);
      sql += formatText("INSERT INTO descriptors VALUES (%zu, %zu, 128, NULL);", i + 1, observations[i].size());
    }
    for (uint32_t a = 0; a < kImages; ++a) {
      for (uint32_t b = a + 1; b < kImages; ++b) sql += insertOf(a, b);
    }
    run(sql + "COMMIT;");
  }
  std::string insertOf(uint32_t a, uint32_t b) const {
    std::string data;
    size_t rows = 0;
    for (const auto& [point, feature] : features_[a]) {
      const auto other = features_[b].find(point);
      if (other == features_[b].end()) continue;
      ++rows;
      for (const uint32_t index : {feature, other->second}) {
        for (int byte = 0; byte < 4; ++byte) data += formatText("%02X", (index >> (8 * byte)) & 255U);
      }
    }
    if (rows < 15) return {};
    return formatText("INSERT INTO two_view_geometries VALUES (%lld, %zu, X'",
                      static_cast<long long>(pairId(a + 1, b + 1)), rows) +
           data + "');";
  }

  ViewGraph graph() const { return viewGraph(database, model, observations); }
  CameraReport verdict() const {
    const ViewGraph seen = graph();
    return judge({model, observations, seen, kImages, {model.images.size()}});
  }
  // The second half of the walk laid over the first.
  void fold() {
    for (size_t i = kImages / 2; i < kImages; ++i) setPose(model.images[i], truth_[i - kImages / 2]);
  }

  test::TempFolder folder;
  const std::filesystem::path database = folder / "database.db";
  gs::colmap::Model model;
  std::vector<gs::colmap::Observations> observations;

 private:
  std::vector<Vector3d> points_;
  std::vector<Pose> truth_;
  std::vector<std::map<size_t, uint32_t>> features_;  // of each image by point
};

TEST_F(Walk, SolvedRightIsSound) {
  const CameraReport report = verdict();
  EXPECT_EQ(report.trust, CameraTrust::Sound) << testing::PrintToString(report.advice);
  EXPECT_EQ(report.neighbours, kImages - 1);
  EXPECT_THAT(report.jumps, IsEmpty());
  EXPECT_THAT(report.summary, HasSubstr("24 of 24 images registered, 900 points"));
  EXPECT_GT(report.trackLength, 5);
  EXPECT_EQ(report.coverageDegrees, 360);
  EXPECT_EQ(report.turningShare, 0);
  ASSERT_TRUE(report.weakestLink);
  EXPECT_GT(report.weakestLink->points, 50u);
}

TEST_F(Walk, AFoldIsNamedWithItsPlaceAndCut) {
  fold();
  const CameraReport report = verdict();
  EXPECT_EQ(report.trust, CameraTrust::Folded);
  EXPECT_THAT(report.summary, HasSubstr("Do not train on these cameras"));
  ASSERT_THAT(report.jumps, SizeIs(1));
  EXPECT_EQ(report.jumps[0].first, "f00012.jpg");
  EXPECT_EQ(report.jumps[0].second, "f00013.jpg");
  EXPECT_NEAR(report.jumps[0].degrees, 165, 1);
  EXPECT_THAT(report.advice, Contains(HasSubstr("f00012.jpg and f00013.jpg")));

  const std::set<std::string> stretch = longestSoundStretch(graph(), report.jumps);
  EXPECT_THAT(stretch, AllOf(SizeIs(12), Contains("f00001.jpg"), Contains("f00012.jpg")));
  keepImages(model, observations, stretch);
  EXPECT_THAT(model.images, SizeIs(12));
  EXPECT_LT(model.points.count(), 900u);
  for (const auto& list : observations) {
    for (const Observation& seen : list) {
      EXPECT_TRUE(seen.point == Observation::kNoPoint || seen.point < model.points.count());
    }
  }
}

TEST_F(Walk, ImagesThatWereNotPlacedGetTheirReason) {
  run("UPDATE descriptors SET rows = 20 WHERE image_id = 24; DELETE FROM two_view_geometries WHERE pair_id / "
      "2147483647 "
      "= 24 OR pair_id % 2147483647 IN (23, 24) OR pair_id / 2147483647 = 23;");
  model.images.resize(21);
  observations.resize(21);
  const CameraReport report = verdict();
  EXPECT_EQ(report.trust, CameraTrust::Doubtful);
  ASSERT_THAT(report.notPlaced, SizeIs(3));
  EXPECT_THAT(report.notPlaced[0].reason, AllOf(HasSubstr("too little in common"), HasSubstr("f00021.jpg")));
  EXPECT_EQ(report.notPlaced[1].reason, "overlaps with no other image");
  EXPECT_THAT(report.notPlaced[2].reason, HasSubstr("hardly any detail (20 features)"));
}

TEST_F(Walk, ImagesOfSomethingElseAreNamed) {
  run("DELETE FROM two_view_geometries WHERE (pair_id / 2147483647 <= 16) <> (pair_id % 2147483647 <= 16);");
  model.images.resize(16);
  observations.resize(16);
  EXPECT_THAT(verdict().advice,
              Contains(HasSubstr("8 images (f00017.jpg to f00024.jpg) overlap only with one another")));
}

TEST_F(Walk, PairsAreChosenByOrderStrengthAndAgreement) {
  const auto apart = [](const ImagePair& pair) { return pair.second - pair.first; };
  for (const ImagePair& pair : nearPairs(graph(), 2)) EXPECT_LE(apart(pair), 2u);
  EXPECT_THAT(nearPairs(graph(), 1), SizeIs(kImages - 1));
  for (const ImagePair& pair : strongestPairs(graph(), 2)) {
    EXPECT_TRUE(apart(pair) <= 2 || apart(pair) >= kImages - 2);  // the walk ends where it began
  }
  fold();
  const std::set<ImagePair> agreeing = agreeingPairs(graph(), false);
  EXPECT_TRUE(agreeing.contains({11, 12}));
  EXPECT_FALSE(agreeing.contains({12, 13}));

  ColmapDatabase(database).keepVerifiedPairs({{1, 2}, {2, 3}});
  EXPECT_EQ(ColmapDatabase(database).verifiedPairs(), 2u);
}

TEST_F(Walk, SidesThatNoImageWasTakenFromAreFoundAndDrawn) {
  EXPECT_THAT(verdict().gaps, IsEmpty());
  model.images.erase(model.images.begin() + 4, model.images.begin() + 11);
  const std::optional<Coverage> coverage = coverageOf(model);
  ASSERT_TRUE(coverage);
  ASSERT_THAT(coverage->gaps, SizeIs(1));
  const CameraReport::Gap& gap = coverage->gaps[0];
  EXPECT_THAT((std::set{gap.first, gap.second}), ElementsAre("f00004.jpg", "f00012.jpg"));
  EXPECT_NEAR(gap.degrees, 120, 3);  // the median point is not quite the middle
  EXPECT_NEAR(coverage->degrees, 270, 31);

  const Image picture = drawCoverage(*coverage);
  std::set<std::array<uint8_t, 3>> colors;  // half way between the horizon and the rim, where no camera is
  for (int degrees = 0; degrees < 360; degrees += 3) {
    const int x = static_cast<int>(picture.width * (0.5 + 0.36 * std::cos(degrees * kDegree)));
    const int y = static_cast<int>(picture.height * (0.5 + 0.36 * std::sin(degrees * kDegree)));
    const uint8_t* at = picture.rgb.data() + 3 * (y * picture.width + x);
    if (at[0] == 196 || at[0] == 246) colors.insert({at[0], at[1], at[2]});
  }
  EXPECT_THAT(colors, SizeIs(2)) << "covered sectors and open ones";
}

TEST_F(Walk, WhatTheReportSaysIsReadBack) {
  fold();
  CameraReport report = verdict();
  report.attempts.push_back({"near neighbours", 24, 0.1, 0.5, 3.5, true});
  report.notPlaced.push_back({"f9.jpg", "why"});
  Project project;
  project.root = folder / "project";
  std::filesystem::create_directories(project.colmapFolder());
  EXPECT_FALSE(CameraReport::load(project));
  report.save(project);
  const std::optional<CameraReport> read = CameraReport::load(project);
  ASSERT_TRUE(read);
  EXPECT_EQ(cameraReportText(*read), cameraReportText(report));
}

}  // namespace
}  // namespace quor
