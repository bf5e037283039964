#include "sample_capture/options.h"

#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace quor::sample {
namespace {

std::string refusal(std::vector<const char*> arguments) {
  return test::thrownText([&] { parseOptions(arguments); });
}

TEST(Options, RefuseInOneSentence) {
  const std::vector<std::pair<std::vector<const char*>, std::string>> rows = {
      {{}, "A folder to write to is needed."},
      {{"d", "e"}, "Only one folder can be written, but a second one is given: e."},
      {{"d", "--count"}, "--count needs a value."},
      {{"d", "--colour"}, "There is no option --colour."},
      {{"d", "--size", "321", "--kind", "video"}, "The edges of a video are even numbers of pixels, not 321x214."},
      {{"d", "--size", "64x64", "--kind", "video360"},
       "A picture of this kind is 64x32 when it is 64 wide, not 64x64."},
      {{"d", "--kind", "Photos"}, "--kind takes photos, video, video360 or dualfisheye, not 'Photos'."},
      {{"d", "--model", "--count", "1"}, "A model needs at least two pictures: --count 2 or more."}};
  for (const auto& [arguments, text] : rows) EXPECT_EQ(refusal(arguments), text);
  for (const char* size : {"0", "-4", "3x", "x3", "3x4x5", "1e3", "", "99999", "99999999999999999999", " 3"}) {
    EXPECT_TRUE(refusal({"d", "--size", size}).starts_with("--size takes a whole number from 1 to 16384, not '"));
  }
}

}  // namespace
}  // namespace quor::sample
