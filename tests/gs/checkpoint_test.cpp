#include "gs/checkpoint.h"

#include <gmock/gmock.h>

#include <cmath>

#include "support/splats.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

using test::readFile;
using test::thrownText;
using test::writeFile;
using testing::HasSubstr;

GroupArrays arraysOf(const GaussianSet& set) {
  GroupArrays arrays;
  for (size_t g = 0; g < kGroupCount; ++g) arrays[g] = set.group(static_cast<Group>(g));
  return arrays;
}

CheckpointHeader someHeader() {
  CheckpointHeader header;
  header.technique = Technique::Mcmc;
  header.step = 1234;
  header.iterations = 7000;
  header.shDegree = 2;
  header.downscaleLevels = -3;  // written as 0
  header.stepsPerLevel = 77;
  header.count = 999;  // the set's own is written
  header.capacity = 1ULL << 40;
  header.mcmcTarget = 150000;
  header.randomState = 0xfedcba9876543210ULL;
  header.seed = 42;
  header.sceneExtent = 3.25f;
  return header;
}

class CheckpointTest : public testing::Test {
 protected:
  void write(uint64_t splats) {
    const GaussianSet set = test::randomSplats(splats);
    writeCheckpoint(file_, someHeader(), set, arraysOf(test::randomSplats(splats, 2)),
                    arraysOf(test::randomSplats(splats, 3)));
  }
  std::string failure(const std::string& contents) {
    writeFile(file_, contents);
    return thrownText([&] { readCheckpoint(file_); });
  }
  template <typename T>
  static std::string changed(std::string contents, size_t offset, T value) {
    std::memcpy(contents.data() + offset, &value, sizeof(value));
    return contents;
  }

  test::TempFolder folder_;
  std::filesystem::path file_ = folder_ / "out put/checkpoint.quor";
  std::string refusal_ = "Cannot resume from " + toUtf8(file_) + ": ";
};

TEST_F(CheckpointTest, RoundTripKeepsEveryBit) {
  write(3);
  EXPECT_EQ(std::filesystem::file_size(file_), 112u + 708u * 3u);
  const Checkpoint back = readCheckpoint(file_);
  EXPECT_TRUE(test::sameBits(back.set, test::randomSplats(3)));
  EXPECT_EQ(back.set.shDegree, 2);
  for (size_t g = 0; g < kGroupCount; ++g) {
    EXPECT_TRUE(test::sameBits(back.firstMoments[g], arraysOf(test::randomSplats(3, 2))[g])) << g;
    EXPECT_TRUE(test::sameBits(back.secondMoments[g], arraysOf(test::randomSplats(3, 3))[g])) << g;
  }
  const CheckpointHeader header = readCheckpointHeader(file_);
  EXPECT_EQ(std::tuple(header.technique, header.step, header.iterations, header.downscaleLevels, header.stepsPerLevel),
            std::tuple(Technique::Mcmc, 1234u, 7000, 0, 77));
  EXPECT_EQ(std::tuple(header.count, header.capacity, header.mcmcTarget, header.randomState, header.seed),
            std::tuple(3u, 1ULL << 40, 150000u, 0xfedcba9876543210ULL, 42u));
  EXPECT_EQ(header.sceneExtent, 3.25f);
}

TEST_F(CheckpointTest, TheLayoutIsFixed) {
  write(2);
  const std::string file = readFile(file_);
  EXPECT_EQ(file.substr(0, 24), std::string("QUORCKPT\x01\0\0\0\x01\0\0\0\xd2\x04\0\0\x58\x1b\0\0", 24));
  EXPECT_EQ(file.substr(36, 12), std::string("\x06\0\0\0\x02\0\0\0\0\0\0\0", 12));
  // Group by group: values, first moments, second moments.
  float value;
  std::memcpy(&value, file.data() + 112 + 3 * 6 * 4 + 2 * 6 * 4, 4);
  EXPECT_EQ(value, test::randomSplats(2, 3).scales[0]);
}

TEST_F(CheckpointTest, EveryCutIsRefused) {
  write(1);
  const std::string whole = readFile(file_);
  for (size_t size = 0; size < whole.size(); ++size) {
    const std::string expected =
        size < 112 ? "it is too small to be a checkpoint." : "it is truncated (" + std::to_string(size) + " bytes).";
    ASSERT_EQ(failure(whole.substr(0, size)), refusal_ + expected);
  }
  EXPECT_EQ(failure(whole), "no exception");
}

TEST_F(CheckpointTest, DamagedHeadersGiveTheirReason) {
  write(1);
  const std::string good = readFile(file_);
  EXPECT_EQ(thrownText([&] { readCheckpoint(folder_ / "none"); }), "Could not open " + toUtf8(folder_ / "none"));
  EXPECT_EQ(thrownText([&] { readCheckpoint(folder_.path()); }), "Could not open " + toUtf8(folder_.path()));
  EXPECT_EQ(failure(changed(good, 0, 'q')), refusal_ + "it is not a Ombrelux checkpoint.");
  for (const uint32_t version : {0u, 2u, 4000000000u}) {
    EXPECT_EQ(failure(changed(good, 8, version)), refusal_ + "it was written by a newer Ombrelux (format " +
                                                      std::to_string(version) + ", this build reads 1).");
  }
  EXPECT_EQ(failure(changed(good, 36, 7)), refusal_ + "its parameter layout is not one this build knows.");
  for (const uint64_t count : {uint64_t{0}, (uint64_t{1} << 28) + 1, ~uint64_t{0}}) {
    EXPECT_EQ(failure(changed(good, 40, count)), refusal_ + "it holds an implausible number of splats.");
  }
  EXPECT_EQ(failure(changed(good, 40, uint64_t{1} << 28)), refusal_ + "it is truncated (820 bytes).");

  // Values that no run writes, but that the checks let through.
  writeFile(file_, changed(changed(changed(good, 24, 9), 28, -5), 80, std::nanf("")));
  const CheckpointHeader header = readCheckpointHeader(file_);
  EXPECT_EQ(header.shDegree, 3);
  EXPECT_EQ(header.downscaleLevels, 0);
  EXPECT_EQ(header.sceneExtent, 1.0f);
}

TEST_F(CheckpointTest, RandomHeadersAreRefusedOrReadWithoutHarm) {
  write(1);
  const std::string good = readFile(file_);
  SplitMix64 random(5);
  for (int round = 0; round < 300; ++round) {
    std::string file = good;
    for (int change = 0; change < 4; ++change) file[8 + random.below(104)] = static_cast<char>(random.next());
    ASSERT_THAT(failure(file), testing::AnyOf("no exception", testing::StartsWith(refusal_)));
  }
}

TEST_F(CheckpointTest, AFailedWriteLeavesTheEarlierFile) {
  write(1);
  const std::string before = readFile(file_);
  const auto partial = folder_ / "out put/checkpoint.quor.partial";
  std::filesystem::create_directories(partial / "in the way");
  EXPECT_EQ(thrownText([&] { write(2); }), "Could not write " + toUtf8(file_));
  std::filesystem::remove_all(partial);
  std::filesystem::create_symlink("/dev/full", partial);
  EXPECT_EQ(thrownText([&] { write(2); }), "Could not write " + toUtf8(file_) + " (disk full?)");
  EXPECT_EQ(readFile(file_), before);

  std::filesystem::remove(file_);
  std::filesystem::create_directories(file_ / "in the way");
  EXPECT_THAT(thrownText([&] { write(2); }), HasSubstr("Could not replace " + toUtf8(file_) + ": "));
}

}  // namespace
}  // namespace quor::gs
