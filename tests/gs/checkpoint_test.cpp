#include "gs/files/checkpoint.h"

#include <gmock/gmock.h>

#ifndef _WIN32
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <set>
#include <thread>

#include "base/host_memory.h"
#include "gs/train/resume.h"
#include "gs/train/schedule.h"
#include "gs/train/strategy/adaptive_density.h"
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
    // In place, once there is a file: that is much faster than to make it anew.
    std::ofstream(file_, std::ios::binary | std::ios::in | std::ios::out) << contents;
    std::filesystem::resize_file(file_, contents.size());
    return thrownText([&] { readCheckpoint(file_); });
  }
  template <typename T>
  static std::string changed(std::string contents, size_t offset, T value) {
    std::memcpy(contents.data() + offset, &value, sizeof(value));
    return contents;
  }

  test::TempFolder folder_;
  std::filesystem::path file_ = folder_ / "out put/checkpoint.quor";
  std::filesystem::path partial_ = folder_ / "out put/checkpoint.quor.partial";
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
  for (size_t size = whole.size(); size-- > 0;) {
    const std::string expected =
        size < 112 ? "it is too small to be a checkpoint." : "it is truncated (" + std::to_string(size) + " bytes).";
    std::filesystem::resize_file(file_, size);
    ASSERT_EQ(thrownText([&] { readCheckpoint(file_); }), refusal_ + expected);
  }
  EXPECT_EQ(failure(whole), "no exception");
}

TEST_F(CheckpointTest, DamagedHeadersGiveTheirReason) {
  write(1);
  const std::string good = readFile(file_);
  EXPECT_EQ(thrownText([&] { readCheckpoint(folder_.path()); }), "Could not open " + toUtf8(folder_.path()));
  EXPECT_EQ(failure(changed(good, 0, 'q')), refusal_ + "it is not a Ombrelux checkpoint.");
  EXPECT_EQ(failure(changed(good, 8, 2)),
            refusal_ + "it was written by a newer Ombrelux (format 2, this build reads 1).");
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

// Whatever bit of the header is wrong, the file is refused, or a run can go on from it.
TEST_F(CheckpointTest, FlippedHeaderBitsAreRefusedOrHarmless) {
  write(1);
  const std::string good = readFile(file_);
  TrainJob job;
  job.iterations = 7000;
  job = resolved(job);
  int refused = 0;
  for (size_t bit = 0; bit < 8 * 112; ++bit) {
    std::string file = good;
    file[bit / 8] = static_cast<char>(file[bit / 8] ^ (1 << (bit % 8)));
    const std::string reason = failure(file);
    if (reason != "no exception") {
      ASSERT_THAT(reason, testing::StartsWith(refusal_));
      ++refused;
      continue;
    }
    const CheckpointHeader header = readCheckpointHeader(file_);
    const std::string sentence = thrownText([&] {
      const TrainJob continued = continuedJob(job, header);
      requireSameScene(header, 3.25);
      EXPECT_THAT(continued.shDegree, testing::AllOf(testing::Ge(0), testing::Le(3))) << bit;
      EXPECT_THAT(continued.downscaleLevels, testing::AllOf(testing::Ge(0), testing::Le(8))) << bit;
      EXPECT_GT(continued.stepsPerLevel, 0) << bit;
      opacitiesWereReset(continued, header);
    });
    ASSERT_THAT(sentence, testing::AnyOf("no exception", testing::StartsWith("The checkpoint "))) << bit;
    ASSERT_TRUE(bit < 8 * 84 || sentence == "no exception") << "reserved bytes are ignored";
  }
  // Magic, version, group count and count, all of their bits.
  EXPECT_EQ(refused, 8 * (8 + 4 + 4 + 8));
}

TEST_F(CheckpointTest, AFileLargerThanTheMemoryIsRefused) {
  write(1);
  const uint64_t most = uint64_t{1} << 28;
  writeFile(file_, changed(readFile(file_), 40, most));
  std::error_code error;
  std::filesystem::resize_file(file_, 112 + 708 * most, error);
  if (error || availableHostMemory() > 708 * most) GTEST_SKIP() << "cannot be tried on this computer";
  EXPECT_EQ(thrownText([&] { readCheckpoint(file_); }),
            refusal_ + "its 268435456 splats need 181249 MB of memory, more than this computer has free.");
  EXPECT_EQ(readCheckpointHeader(file_).count, most);
}

TEST_F(CheckpointTest, AFailedWriteLeavesTheEarlierFile) {
  write(1);
  const std::string before = readFile(file_);
  std::filesystem::create_directories(partial_ / "in the way");
  EXPECT_EQ(thrownText([&] { write(2); }), "Could not write " + toUtf8(file_));
  std::filesystem::remove_all(partial_);
  EXPECT_EQ(readFile(file_), before);

  std::filesystem::remove(file_);
  std::filesystem::create_directories(file_ / "in the way");
  EXPECT_THAT(thrownText([&] { write(2); }), HasSubstr("Could not replace " + toUtf8(file_) + ": "));
}

#ifndef _WIN32
// Runs `work` in a process of its own, which ends with the number that it returns, or with 1 when it throws.
template <typename Work>
pid_t runBeside(Work work) {
  const pid_t child = fork();
  if (child != 0) return child;
  int number = 1;
  thrownText([&] { number = work(); });
  _exit(number);
}
int exitStatus(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

TEST_F(CheckpointTest, ADiskThatFillsUpLeavesTheEarlierFile) {
  write(1);
  const std::string before = readFile(file_);
  for (const rlim_t room : {0u, 50u, 112u, 113u, 5000u, 112u + 708u * 20u - 1u}) {
    const pid_t child = runBeside([&] {
      std::signal(SIGXFSZ, SIG_IGN);
      const rlimit limit = {room, room};
      setrlimit(RLIMIT_FSIZE, &limit);
      const bool said = thrownText([&] { write(20); }) == "Could not write " + toUtf8(file_) + " (disk full?)";
      return said ? 0 : 1;
    });
    EXPECT_EQ(exitStatus(child), 0) << room;
    EXPECT_EQ(readFile(file_), before) << room;
    EXPECT_FALSE(std::filesystem::exists(partial_)) << room;
  }
}

TEST_F(CheckpointTest, AKilledWriterLeavesAWholeFile) {
  constexpr uint64_t kSplats = 2000;
  SplitMix64 random(3);
  write(kSplats);
  int cutShort = 0;
  std::set<uint32_t> steps;
  for (int round = 0; round < 50; ++round) {
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    const pid_t child = runBeside([&] {
      CheckpointHeader header = someHeader();
      // All arrays of a file hold its number.
      for (header.step = static_cast<uint32_t>(10000 * round);; ++header.step) {
        GaussianSet set;
        set.resize(kSplats);
        for (size_t g = 0; g < kGroupCount; ++g) {
          for (float& value : set.group(static_cast<Group>(g))) value = static_cast<float>(header.step);
        }
        writeCheckpoint(file_, header, set, arraysOf(set), arraysOf(set));
        if (::write(pipeEnds[1], "x", 1) != 1) return 1;
      }
    });
    close(pipeEnds[1]);
    char first = 0;
    EXPECT_EQ(::read(pipeEnds[0], &first, 1), 1) << "the child writes";
    std::this_thread::sleep_for(std::chrono::microseconds(random.below(3000)));
    kill(child, SIGKILL);
    exitStatus(child);
    close(pipeEnds[0]);
    const Checkpoint found = readCheckpoint(file_);
    ASSERT_EQ(found.set.count, kSplats);
    if (std::filesystem::exists(partial_)) ++cutShort;
    steps.insert(found.header.step);
    for (size_t g = 0; g < kGroupCount; ++g) {
      for (const GroupArrays& arrays : {arraysOf(found.set), found.firstMoments, found.secondMoments}) {
        const float step = static_cast<float>(found.header.step);
        ASSERT_TRUE(std::all_of(arrays[g].begin(), arrays[g].end(), [&](float value) { return value == step; }));
      }
    }
  }
  EXPECT_EQ(steps.size(), 50u) << "each child left a file of its own";
  EXPECT_GT(cutShort, 0) << "and some were killed while they wrote";
  write(1);
  EXPECT_FALSE(std::filesystem::exists(partial_)) << "the next write takes what a killed one left";
}
#endif

}  // namespace
}  // namespace quor::gs
