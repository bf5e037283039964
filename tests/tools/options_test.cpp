#include "sample_capture/options.h"

#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace quor::sample {
namespace {

std::string refusal(std::vector<const char*> arguments) {
  try {
    parseOptions(arguments);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "no refusal";
}

TEST(Options, TakeTheirValues) {
  const std::vector<const char*> arguments = {
      "--size", "640x300",  "--count", "24",    "--seed", "18446744073709551615", "--model", "--kind",
      "photos", "--points", "10",      "--out", "d"};
  const Options options = parseOptions(arguments);
  EXPECT_EQ(options.out, "d");
  EXPECT_EQ(options.orbit.size.width, 640);
  EXPECT_EQ(options.orbit.size.height, 300);
  EXPECT_EQ(options.orbit.count, 24);
  EXPECT_EQ(options.orbit.seed, UINT64_MAX);
  EXPECT_EQ(options.points, 10u);
  EXPECT_TRUE(options.binaryModel);
  EXPECT_FALSE(options.textModel);

  const std::vector<const char*> edge = {"d", "--size", "320"};
  EXPECT_EQ(parseOptions(edge).orbit.size.height, 213);
}

TEST(Options, RefuseInOneSentence) {
  EXPECT_EQ(refusal({}), "A folder to write to is needed.");
  EXPECT_EQ(refusal({"d", "e"}), "Only one folder can be written, but a second one is given: e.");
  EXPECT_EQ(refusal({"d", "--count"}), "--count needs a value.");
  EXPECT_EQ(refusal({"d", "--colour"}), "There is no option --colour.");
  EXPECT_EQ(refusal({"d", "--kind", "video"}), "--kind video is not there yet; only photos can be made.");
  EXPECT_EQ(refusal({"d", "--kind", "Photos"}), "--kind takes photos, video, video360 or dualfisheye, not 'Photos'.");
  EXPECT_EQ(refusal({"d", "--model", "--count", "1"}), "A model needs at least two photographs: --count 2 or more.");
  for (const char* size : {"0", "-4", "3x", "x3", "3x4x5", "1e3", "", "99999", " 3"}) {
    EXPECT_TRUE(refusal({"d", "--size", size}).starts_with("--size takes a whole number from 1 to 16384, not '"));
  }
  for (const char* count : {"0", "10000", "99999999999999999999", "two"}) {
    EXPECT_TRUE(refusal({"d", "--count", count}).starts_with("--count takes a whole number from 1 to 9999, not '"));
  }
}

}  // namespace
}  // namespace quor::sample
