#include "gpu/compute_stream.h"

#include <cstring>
#include <numeric>
#include <stdexcept>
#include <thread>

#include "gpu/radix_sorter.h"
#include "support/gpu_fixture.h"

namespace quor::gs {
namespace {

template <class Call>
std::string errorOf(Call call) {
  try {
    call();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

using ComputeStreamTest = GpuTest;

TEST_F(ComputeStreamTest, RefusesBadCallsBeforeRecording) {
  const GpuBuffer data = makeBuffer(std::vector<uint32_t>(4, 7));
  const GpuBuffer none;
  const std::array<std::byte, 132> push{};
  const std::array<BufferRef, 2> buffers = {&data, &data};
  const auto dispatch = [&](std::span<const BufferRef> bound, size_t pushSize) {
    return errorOf([&] { stream.dispatch("scan_add", bound, push.data(), pushSize, 1, 1, 1); });
  };
  EXPECT_EQ(dispatch(std::span(buffers).first(1), 4), "kernel 'scan_add' expects 2 buffers, got 1");
  EXPECT_EQ(dispatch(buffers, 130), "bad push constant size for scan_add");
  EXPECT_EQ(dispatch(buffers, 132), "bad push constant size for scan_add");
  EXPECT_EQ(dispatch(buffers, 6), "bad push constant size for scan_add");
  EXPECT_EQ(dispatch(std::array<BufferRef, 2>{&data, &none}, 4), "kernel 'scan_add' binding 1 is not allocated");
  EXPECT_EQ(errorOf([&] { stream.dispatch1D("unknown", buffers, push.data(), 4, 1); }),
            "No embedded shader named 'unknown'");
  const uint32_t tooMany = context.info().maxComputeWorkGroupCount[2];
  if (tooMany < UINT32_MAX) {
    EXPECT_EQ(errorOf([&] { stream.dispatch("scan_add", buffers, push.data(), 4, 1, 1, tooMany + 1); }),
              "dispatch too large for scan_add");
  }
  stream.submit();
  EXPECT_EQ(readBuffer<uint32_t>(data), std::vector<uint32_t>(4, 7));
}

TEST_F(ComputeStreamTest, NothingToDoRecordsNothing) {
  const GpuBuffer none;
  stream.dispatch1D("scan_add", {&none, &none}, 0u, 0);
  stream.dispatch("scan_add", {&none, &none}, 0u, 1, 0, 1);
  stream.fill(none, 1);
  stream.copy(none, none, 0);
  stream.submit();
}

TEST_F(ComputeStreamTest, ABufferBeyondTheBindingRangeIsNamed) {
  const uint64_t range = context.info().maxStorageBufferRange;
  if (range > (uint64_t{512} << 20)) GTEST_SKIP() << "the range of this device is too large to pass";
  const GpuBuffer large(context, range + 4, BufferKind::Device, "sh_rest");
  const GpuBuffer fits(context, range, BufferKind::Device, "fits");
  EXPECT_EQ(errorOf([&] {
              stream.dispatch1D("scan_add", {&large, &fits}, 1u, 1);
            }),
            "Buffer 'sh_rest' of " + std::to_string(range + 4) + " bytes is larger than the " + std::to_string(range) +
                " bytes that kernels can reach on this GPU. Lower the splat budget or the training resolution.");
  EXPECT_EQ(errorOf([&] { stream.dispatch1D("scan_add", {&fits, &fits}, 0u, 1); }), "");
}

TEST_F(ComputeStreamTest, ManyDispatchesRunInOrder) {
  const GpuBuffer counter = makeBuffer(std::vector<uint32_t>{0});
  const GpuBuffer one = makeBuffer(std::vector<uint32_t>{1});
  const GpuBuffer history = makeBuffer(std::vector<uint32_t>(1300, 0));
  for (int round = 0; round < 3; ++round) {
    for (uint32_t i = 0; i < 1300; ++i) {
      stream.dispatch1D("scan_add", {&counter, &one}, 1u, 1);
      if (round == 2) stream.copy(counter, history, 4, 0, i * 4);
    }
    stream.submit();
  }
  std::vector<uint32_t> expected(1300);
  std::iota(expected.begin(), expected.end(), 2601u);
  EXPECT_EQ(readBuffer<uint32_t>(history), expected);
}

TEST_F(ComputeStreamTest, TheGridSpillsIntoASecondDimension) {
  using Grid = std::array<uint32_t, 2>;
  constexpr std::array<uint32_t, 3> kSmall = {65535, 65535, 64}, kHuge = {2147483647, 65535, 64}, kTiny = {10, 3, 1};
  EXPECT_EQ(ComputeStream::grid1D(0, kSmall, "k"), (Grid{0, 0}));
  EXPECT_EQ(ComputeStream::grid1D(65535, kSmall, "k"), (Grid{65535, 1}));
  EXPECT_EQ(ComputeStream::grid1D(70000, kSmall, "k"), (Grid{65535, 2}));
  EXPECT_EQ(ComputeStream::grid1D(70000, kHuge, "k"), (Grid{65535, 2}));
  EXPECT_EQ(ComputeStream::grid1D(30, kTiny, "k"), (Grid{10, 3}));
  EXPECT_EQ(errorOf([&] { ComputeStream::grid1D(31, kTiny, "k"); }), "dispatch too large for k");

  const uint32_t count = 65535 * 256 + 300;
  const GpuBuffer data = makeBuffer(std::vector<uint32_t>(count, 5));
  std::vector<uint32_t> offsets(count / 1024 + 1);
  std::iota(offsets.begin(), offsets.end(), 1u);
  const GpuBuffer bound = makeBuffer(offsets);
  stream.dispatch1D("scan_add", {&data, &bound}, count, count);
  stream.submit();
  const std::vector<uint32_t> result = readBuffer<uint32_t>(data);
  for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(result[i], 5 + i / 1024 + 1) << i;
}

TEST_F(ComputeStreamTest, FillsRoundUpAndStopAtTheEnd) {
  const GpuBuffer buffer = makeBuffer(std::vector<uint8_t>(19, 9));
  stream.fill(buffer, 0x01010101, 5, 4);
  stream.fill(buffer, 0x02020202, 1000, 16);
  stream.fill(buffer, 0x03030303, 4, 20);
  stream.submit();
  EXPECT_EQ(readBuffer<uint8_t>(buffer),
            (std::vector<uint8_t>{9, 9, 9, 9, 1, 1, 1, 1, 1, 1, 1, 1, 9, 9, 9, 9, 2, 2, 2}));
  stream.fill(buffer, 0);
  stream.submit();
  EXPECT_EQ(readBuffer<uint8_t>(buffer), std::vector<uint8_t>(19, 0));
}

TEST_F(ComputeStreamTest, CopiesBetweenTheKinds) {
  const GpuBuffer upload(context, 64, BufferKind::Upload, "upload");
  const GpuBuffer device(context, 64, BufferKind::Device, "device");
  const GpuBuffer readback(context, 64, BufferKind::Readback, "readback");
  for (uint32_t round = 0; round < 3; ++round) {
    std::vector<uint32_t> sent(16, round + 10);
    std::memcpy(upload.mapped(), sent.data(), 64);
    stream.copy(upload, device, 64);
    stream.copy(device, readback, 32, 8, 4);
    stream.submit();
    EXPECT_EQ(std::memcmp(static_cast<std::byte*>(readback.mapped()) + 4, sent.data(), 32), 0);
  }
  EXPECT_EQ(errorOf([&] { stream.copy(upload, device, 61, 0, 4); }), "copy past the end of 'device'");
  EXPECT_EQ(errorOf([&] { stream.copy(upload, device, 8, 60, 0); }), "copy past the end of 'upload'");
}

TEST_F(ComputeStreamTest, ARecordingThatIsNotSubmittedIsDropped) {
  const GpuBuffer buffer = makeBuffer(std::vector<uint32_t>(8, 3));
  {
    ComputeStream dropped(context, registry);
    dropped.fill(buffer, 4);
    dropped.dispatch1D("scan_add", {&buffer, &buffer}, 8u, 8);
  }
  EXPECT_EQ(readBuffer<uint32_t>(buffer), std::vector<uint32_t>(8, 3));
}

TEST_F(ComputeStreamTest, ProfilesByNameWhenAsked) {
  const GpuBuffer buffer(context, 1 << 20, BufferKind::Device, "data");
  const auto work = [&] {
    stream.mark("first");
    stream.fill(buffer, 1);
    stream.mark("second");
    stream.fill(buffer, 2);
    stream.mark("first");
    stream.fill(buffer, 3);
    stream.submit();
  };
  work();
  EXPECT_TRUE(stream.takeProfile().empty());
  if (context.info().timestampPeriod == 0) GTEST_SKIP() << "no timestamps";
  stream.setProfiling(true);
  work();
  work();
  const std::vector<StageTime> profile = stream.takeProfile();
  ASSERT_EQ(profile.size(), 2u);
  EXPECT_STREQ(profile[0].stage, "first");
  EXPECT_EQ(profile[0].count, 4u);
  EXPECT_EQ(profile[1].count, 2u);
  for (const StageTime& row : profile) EXPECT_GE(row.milliseconds, 0.0);
  EXPECT_TRUE(stream.takeProfile().empty());
  stream.setProfiling(false);
  work();
  EXPECT_TRUE(stream.takeProfile().empty());
}

TEST_F(ComputeStreamTest, TwoThreadsShareTheDevice) {
  KernelRegistry fresh(context);
  std::array<std::vector<uint32_t>, 2> results;
  {
    std::vector<std::jthread> threads;
    for (uint32_t who = 0; who < 2; ++who) {
      threads.emplace_back([&, who] {
        Transfer own(context);
        ComputeStream mine(context, fresh);
        RadixSorter sorter(context);
        const uint32_t count = 5000;
        sorter.reserve(count);
        std::vector<uint32_t> keys(count);
        for (uint32_t i = 0; i < count; ++i) keys[i] = (count - i) * 2 + who;
        GpuBuffer buffers[4];
        for (GpuBuffer& buffer : buffers) buffer = GpuBuffer(context, count * 4, BufferKind::Device, "pairs");
        for (int round = 0; round < 5; ++round) {
          own.upload(buffers[0], keys.data(), 0, count * 4);
          own.upload(buffers[1], keys.data(), 0, count * 4);
          sorter.sort(mine, buffers[0], buffers[1], buffers[2], buffers[3], count, 16);
          mine.submit();
        }
        results[who].resize(count);
        own.download(buffers[1], results[who].data(), 0, count * 4);
      });
    }
  }
  for (uint32_t who = 0; who < 2; ++who) {
    for (uint32_t i = 0; i < 5000; ++i) ASSERT_EQ(results[who][i], (i + 1) * 2 + who);
  }
}

}  // namespace
}  // namespace quor::gs
