#include "gpu/compute/compute_stream.h"

#include <functional>
#include <numeric>
#include <thread>

#include "gpu/kernels/interfaces.h"
#include "gpu/sort/radix_sorter.h"
#include "support/gpu_fixture.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

using kernels::ScanAdd;
using test::thrownText;
using ComputeStreamTest = GpuTest;

TEST_F(ComputeStreamTest, RefusesBadCallsBeforeRecordingAndSkipsEmptyOnes) {
  const GpuBuffer data = makeBuffer(std::vector<uint32_t>(4, 7)), none;
  const auto refusal = [&](std::vector<BufferRef> bound, size_t pushSize, uint32_t groupsZ = 1) {
    const std::array<std::byte, 132> push{};
    return thrownText([&] { stream.dispatch("scan_add", bound, push.data(), pushSize, 1, 1, groupsZ); });
  };
  EXPECT_EQ(refusal({&data}, 4), "kernel 'scan_add' expects 2 buffers, got 1");
  EXPECT_EQ(refusal({&data, &data}, 132), "bad push constant size for scan_add");
  EXPECT_EQ(refusal({&data, &none}, 4), "kernel 'scan_add' binding 1 is not allocated");
  const uint32_t most = context.info().maxComputeWorkGroupCount[2];
  if (most < UINT32_MAX) {
    EXPECT_EQ(refusal({&data, &data}, 4, most + 1), "dispatch too large for scan_add");
  }
  stream.dispatch1D(ScanAdd{&none, &none}, {0}, 0);
  stream.dispatch(ScanAdd{&none, &none}, {0}, 1, 0, 1);
  stream.fill(none, 1);
  stream.copy(none, none, 0);
  stream.submit();
  EXPECT_EQ(readBuffer<uint32_t>(data), std::vector<uint32_t>(4, 7));
}

TEST_F(ComputeStreamTest, ABufferBeyondTheBindingRangeIsNamed) {
  const uint64_t range = context.info().maxStorageBufferRange;
  if (range > (uint64_t{512} << 20)) GTEST_SKIP() << "the range of this device is too large to pass";
  const GpuBuffer large(context, range + 4, BufferKind::Device, "sh_rest");
  const GpuBuffer fits(context, range, BufferKind::Device, "fits");
  const auto use = [&](const GpuBuffer& buffer) {
    return thrownText([&] { stream.dispatch1D(ScanAdd{&buffer, &fits}, {0}, 1); });
  };
  EXPECT_EQ(use(large),
            "Buffer 'sh_rest' of " + std::to_string(range + 4) + " bytes is larger than the " + std::to_string(range) +
                " bytes that kernels can reach on this GPU. Lower the splat budget or the training resolution.");
  EXPECT_EQ(use(fits), "no exception");
}

TEST_F(ComputeStreamTest, ManyDispatchesRunInOrder) {
  const GpuBuffer counter = makeBuffer(std::vector<uint32_t>{0});
  const GpuBuffer one = makeBuffer(std::vector<uint32_t>{1});
  const GpuBuffer history = makeBuffer(std::vector<uint32_t>(1300, 0));
  for (int round = 0; round < 3; ++round) {
    for (uint32_t i = 0; i < 1300; ++i) {
      stream.dispatch1D(ScanAdd{&counter, &one}, {1}, 1);
      if (round == 2) stream.copy(counter, history, 4, 0, i * 4);
    }
    stream.submit();
  }
  std::vector<uint32_t> expected(1300);
  std::iota(expected.begin(), expected.end(), 2601u);
  EXPECT_EQ(readBuffer<uint32_t>(history), expected);
}

TEST_F(ComputeStreamTest, OnlyCommandsThatShareWhatIsWrittenWaitForOneAnother) {
  const GpuBuffer a = makeBuffer(std::vector<uint32_t>{1}), b = makeBuffer(std::vector<uint32_t>{2});
  const GpuBuffer one = makeBuffer(std::vector<uint32_t>{1}), copied = makeBuffer(std::vector<uint32_t>{0});
  const auto barriersOf = [&](const std::function<void()>& record) {
    const uint64_t before = stream.counts().barriers;
    record();
    return stream.counts().barriers - before;
  };
  const auto add = [&](const GpuBuffer& to, const GpuBuffer& from) {
    stream.dispatch1D(ScanAdd{.data = &to, .offsets = &from}, {1}, 1);
  };
  EXPECT_EQ(barriersOf([&] { add(a, one), add(b, one); }), 0u);             // both read `one`
  EXPECT_EQ(barriersOf([&] { stream.copy(a, copied, 4); }), 1u);            // reads what was written
  EXPECT_EQ(barriersOf([&] { add(a, one); }), 1u);                          // writes what is being read
  EXPECT_EQ(barriersOf([&] { stream.fill(copied, 9), add(b, one); }), 0u);  // before the last barrier
  EXPECT_EQ(barriersOf([&] { stream.fill(copied, 8); }), 1u);               // writes what was written
  stream.submit();
  EXPECT_EQ(barriersOf([&] { add(b, copied); }), 0u);  // another submission
  stream.submit();
  EXPECT_EQ(readBuffer<uint32_t>(a), std::vector<uint32_t>{3});
  EXPECT_EQ(readBuffer<uint32_t>(b), std::vector<uint32_t>{12});
}

TEST_F(ComputeStreamTest, TheGridSpillsIntoASecondDimension) {
  using Grid = std::array<uint32_t, 2>;
  constexpr std::array<uint32_t, 3> kHuge = {2147483647, 65535, 64}, kTiny = {10, 3, 1};
  EXPECT_EQ(ComputeStream::grid1D(70000, kHuge, "k"), (Grid{65535, 2}));
  EXPECT_EQ(ComputeStream::grid1D(30, kTiny, "k"), (Grid{10, 3}));
  EXPECT_EQ(thrownText([&] { ComputeStream::grid1D(31, kTiny, "k"); }), "dispatch too large for k");

  const uint32_t count = 65535 * 256 + 300;
  const GpuBuffer data = makeBuffer(std::vector<uint32_t>(count, 5));
  std::vector<uint32_t> offsets(count / 1024 + 1);
  std::iota(offsets.begin(), offsets.end(), 1u);
  const GpuBuffer bound = makeBuffer(offsets);
  stream.dispatch1D(ScanAdd{&data, &bound}, {count}, count);
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
}

TEST_F(ComputeStreamTest, ARecordingThatIsNotSubmittedIsDropped) {
  const GpuBuffer buffer = makeBuffer(std::vector<uint32_t>(8, 3));
  ComputeStream(context, registry).fill(buffer, 4);
  EXPECT_EQ(readBuffer<uint32_t>(buffer), std::vector<uint32_t>(8, 3));
}

TEST_F(ComputeStreamTest, TwoThreadsShareTheDevice) {
  KernelRegistry fresh(context);
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
      own.download(buffers[1], keys.data(), 0, count * 4);
      for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(keys[i], (i + 1) * 2 + who);
    });
  }
}

}  // namespace
}  // namespace quor::gs
