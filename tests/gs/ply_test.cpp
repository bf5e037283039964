#include "gs/files/ply.h"

#include <gmock/gmock.h>

#include <cmath>

#include "support/splats.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

using test::readFile;
using test::TempFolder;
using test::thrownText;
using test::writeFile;
using testing::StartsWith;

template <typename T>
std::string bytes(std::initializer_list<T> values) {
  return {reinterpret_cast<const char*>(values.begin()), values.size() * sizeof(T)};
}

std::string properties(const char* type, std::initializer_list<const char*> names) {
  std::string text;
  for (const char* name : names) text += std::string("property ") + type + " " + name + "\n";
  return text;
}

const std::string kBinary = "ply\nformat binary_little_endian 1.0\n";
const std::string kAscii = "ply\nformat ascii 1.0\n";
const std::string kXyz = properties("float", {"x", "y", "z"});

class PlyTest : public testing::Test {
 protected:
  GaussianSet read(const std::string& contents) { return readPly(writeFile(file_, contents)); }
  std::string failure(const std::string& contents) {
    return thrownText([&] { read(contents); });
  }

  TempFolder folder_;
  std::filesystem::path file_ = folder_ / "some scene.ply";
  std::string name_ = toUtf8(file_);
};

TEST_F(PlyTest, RoundTripKeepsEveryBitOverBlockBorders) {
  for (const uint64_t count : {uint64_t{0}, uint64_t{1}, uint64_t{65537}}) {
    GaussianSet set = test::randomSplats(count);
    set.shDegree = 1;  // all 45 are written all the same
    writePly(file_, set, "Ombrelux MCMC iteration 30000");
    const GaussianSet back = readPly(file_);
    EXPECT_TRUE(test::sameBits(set, back)) << count;
    EXPECT_EQ(back.shDegree, 3);
  }
}

TEST_F(PlyTest, WritesTheLayoutOtherProgramsRead) {
  GaussianSet set = test::randomSplats(2);
  writePly(file_, set, "one two");
  const std::string file = readFile(file_);
  EXPECT_THAT(file, StartsWith("ply\nformat binary_little_endian 1.0\ncomment one two\nelement vertex 2\n"
                               "property float x\nproperty float y\nproperty float z\nproperty float nx\n"
                               "property float ny\nproperty float nz\nproperty float f_dc_0\nproperty float f_dc_1\n"
                               "property float f_dc_2\nproperty float f_rest_0\n"));
  const std::string end =
      "property float f_rest_44\nproperty float opacity\nproperty float scale_0\nproperty float scale_1\n"
      "property float scale_2\nproperty float rot_0\nproperty float rot_1\nproperty float rot_2\n"
      "property float rot_3\nend_header\n";
  const size_t body = file.find(end) + end.size();
  ASSERT_EQ(file.size(), body + 2 * 248);
  float record[62];
  std::memcpy(record, file.data() + body + 248, sizeof(record));
  EXPECT_EQ(record[2], set.positions[5]);
  EXPECT_EQ(record[4], 0.0f);
  EXPECT_EQ(record[9 + 1 * 15 + 3], set.shRest[45 + 3 * 3 + 1]);
  EXPECT_EQ(record[58], set.rotations[4]);
}

TEST_F(PlyTest, EveryCutOfAFileIsRefused) {
  writePly(file_, test::randomSplats(1), "c");
  const std::string whole = readFile(file_);
  const size_t header = whole.find("end_header\n") + 10;  // the last line may lack its line feed
  for (size_t size = 0; size < whole.size(); ++size) {
    const std::string expected = size < 3        ? name_ + " is not a PLY file"
                                 : size < header ? name_ + " has no end_header"
                                                 : "Truncated PLY: " + name_;
    ASSERT_EQ(failure(whole.substr(0, size)), expected) << size;
  }
}

TEST_F(PlyTest, RefusalsNameTheFile) {
  EXPECT_EQ(thrownText([&] { readPly(folder_.path()); }), "Cannot open " + toUtf8(folder_.path()));
  const std::pair<std::string, std::string> rows[] = {
      {kBinary + "element vertex 1\nproperty list uchar int i\nend_header\n",
       "Unsupported list property on vertices in " + name_},
      {"ply\nformat binary_big_endian 1.0\nelement face 0\nelement vertex 1\n" + kXyz + "end_header\n",
       "PLY vertex element must come first: " + name_},
      {"ply\nformat binary_big_endian 1.0\nelement vertex 1\nend_header\n",
       "Unsupported PLY format 'binary_big_endian' in " + name_},
      {kBinary + "element vertex 1\nproperty float x\nproperty float y\nend_header\n",
       name_ + " has no vertex positions"}};
  for (const auto& [contents, text] : rows) EXPECT_EQ(failure(contents), text);
  for (const char* count : {"-1", "", "99999999999999999999"}) {
    EXPECT_EQ(failure(kBinary + "element vertex " + count + "\n" + kXyz + "end_header\n"),
              "The PLY header has no valid vertex count: " + name_);
  }
}

TEST_F(PlyTest, ClaimedCountsAndEmptyRecordsNeitherAllocateNorHang) {
  const std::string vertices = "element vertex 18446744073709551615\n";
  EXPECT_EQ(failure(kBinary + vertices + kXyz + "end_header\n0123456789abc"), "Truncated PLY: " + name_);
  EXPECT_EQ(failure(kAscii + vertices + kXyz + "end_header\n1 2 3\n4 5\n"), "Truncated PLY: " + name_);
  EXPECT_EQ(failure(kBinary + vertices + properties("half", {"x", "y", "z"}) + "end_header\n"),
            name_ + " has no vertex positions");
}

TEST_F(PlyTest, ReadsTheVariantsOfOtherWriters) {
  // CR-LF, every kind of type, properties of no interest, an element after the vertices.
  const GaussianSet set = read(
      "ply\r\nformat binary_little_endian 1.0\r\nobj_info a b\r\nelement vertex 2\r\nproperty double z\r\n"
      "property uchar flag\r\nproperty float x\r\nproperty int16 y\r\nproperty uint8 red\r\n"
      "element face 1\r\nproperty list uchar int i\r\nend_header\r\n" +
      bytes<double>({-2.5}) + "\x07" + bytes<float>({1.5f}) + bytes<int16_t>({-300}) + "\xff" +  //
      bytes<double>({9}) + "\x07" + bytes<float>({8}) + bytes<int16_t>({7}) + std::string(1, '\0') + "faces");
  EXPECT_THAT(set.positions, testing::ElementsAre(1.5f, -300, -2.5f, 8, 7, 9));
  EXPECT_FLOAT_EQ(set.shDc[0], 0.5f / 0.2820948f);
  EXPECT_FLOAT_EQ(set.shDc[3], -0.5f / 0.2820948f);
}

TEST_F(PlyTest, APointCloudBecomesSmallOpaqueBalls) {
  const GaussianSet set = read(kAscii + "element vertex 1\n" + kXyz + "end_header\n+1 nan\n-2e-1");
  EXPECT_EQ(set.positions[0], 1.0f);
  EXPECT_TRUE(std::isnan(set.positions[1]));
  EXPECT_EQ(set.positions[2], -0.2f);
  EXPECT_FLOAT_EQ(set.shDc[1], (200.0f / 255.0f - 0.5f) / 0.2820948f);
  EXPECT_EQ(set.opacities[0], 4.0f);
  EXPECT_FLOAT_EQ(set.scales[2], std::log(0.01f));
  EXPECT_THAT(set.rotations, testing::ElementsAre(1, 0, 0, 0));
  EXPECT_EQ(failure(kAscii + "element vertex 1\n" + kXyz + "end_header\n1 2 3x\n"), "Truncated PLY: " + name_);
}

// The value of f_rest_n is n + 1.
GaussianSet readRest(const std::filesystem::path& file, int count) {
  std::string header = kAscii + "element vertex 1\n" + kXyz + properties("float", {"opacity", "scale_0", "rot_0"});
  std::string body = "0 0 0 0.5 -1 2";
  for (int i = 0; i < count; ++i) {
    header += "property float f_rest_" + std::to_string(i) + "\n";
    body.append(" ").append(std::to_string(i + 1));
  }
  return readPly(writeFile(file, header + "end_header\n" + body));
}

TEST_F(PlyTest, TheDegreeFollowsTheRestProperties) {
  const GaussianSet nine = readRest(file_, 9);
  EXPECT_EQ(nine.shDegree, 1);
  for (size_t c = 0; c < 3; ++c) {
    for (size_t k = 0; k < 15; ++k) {
      EXPECT_EQ(nine.shRest[k * 3 + c], k < 3 ? static_cast<float>(c * 3 + k + 1) : 0.0f) << k << " " << c;
    }
  }
  EXPECT_EQ(readRest(file_, 10).shRest, nine.shRest);
  EXPECT_THAT(nine.scales, testing::ElementsAre(-1, -5, -5));
  EXPECT_THAT(nine.rotations, testing::ElementsAre(2, 0, 0, 0));

  // Five coefficients a channel are degree 1 with two left over.
  const GaussianSet fifteen = readRest(file_, 15);
  EXPECT_EQ(fifteen.shDegree, 1);
  EXPECT_EQ(fifteen.shRest[2 * 3 + 1], 8.0f);
  EXPECT_EQ(fifteen.shRest[3 * 3 + 1], 0.0f);
  EXPECT_EQ(readRest(file_, 48).shDegree, 3);
}

TEST_F(PlyTest, AFailedWriteNamesTheTarget) {
  std::filesystem::create_directories(file_ / "in the way");
  EXPECT_THAT(thrownText([&] { writePly(file_, test::randomSplats(1), ""); }),
              StartsWith("Cannot replace " + name_ + ": "));
}

}  // namespace
}  // namespace quor::gs
