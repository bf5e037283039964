#include "gpu/memory/transfer.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "support/gpu_fixture.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

constexpr size_t kMiB = size_t{1} << 20;

using test::thrownText;
using GpuBufferTest = GpuTest;
using TransferTest = GpuTest;

TEST_F(GpuBufferTest, KeepsAccountAndOwnership) {
  const uint64_t before = GpuBuffer::liveBytes();
  {
    GpuBuffer device(context, 1001, BufferKind::Device, "device");
    const GpuBuffer upload(context, 10, BufferKind::Upload, "upload");
    EXPECT_EQ(GpuBuffer::liveBytes(), before + 1011);
    const VkBuffer handle = device.handle();
    GpuBuffer moved = std::move(device);
    EXPECT_EQ(moved.handle(), handle);
    moved = GpuBuffer(context, 8, BufferKind::Device, "other");
    EXPECT_EQ(GpuBuffer::liveBytes(), before + 18);
  }
  EXPECT_EQ(GpuBuffer::liveBytes(), before);
}

TEST_F(GpuBufferTest, RefusesMoreThanOneAllocation) {
  const uint64_t limit = context.info().maxAllocationSize;
  const uint64_t before = GpuBuffer::liveBytes();
  const std::string tooLarge = "Buffer 'huge' needs " + std::to_string((limit + 1) >> 20) +
                               " MB, above this GPU's single-allocation limit of " + std::to_string(limit >> 20) +
                               " MB";
  EXPECT_EQ(thrownText([&] { GpuBuffer(context, limit + 1, BufferKind::Device, "huge"); }), tooLarge);
  EXPECT_EQ(GpuBuffer::liveBytes(), before);

  if (context.info().deviceType != VK_PHYSICAL_DEVICE_TYPE_CPU) return;  // takes true memory there
  EXPECT_EQ(GpuBuffer(context, limit / 2, BufferKind::Device, "largest").size(), limit / 2);
}

TEST_F(TransferTest, MovesMoreThanTheStagingBufferHolds) {
  const size_t offset = 777, size = 64 * kMiB + 12345;
  GpuBuffer buffer(context, offset + size + 99, BufferKind::Device, "large");
  transfer.fill(buffer, 0xABABABAB, 0, buffer.size());
  std::vector<uint8_t> sent(size);
  for (size_t i = 0; i < size; ++i) sent[i] = static_cast<uint8_t>(i * 31 + (i >> 16));
  transfer.upload(buffer, sent.data(), offset, size);

  const std::vector<uint8_t> result = readBuffer<uint8_t>(buffer);
  const std::span<const uint8_t> all(result);
  const auto untouched = [](std::span<const uint8_t> bytes) {
    return std::ranges::count(bytes, 0xAB) == static_cast<ptrdiff_t>(bytes.size());
  };
  EXPECT_TRUE(untouched(all.first(offset)));
  EXPECT_TRUE(std::ranges::equal(all.subspan(offset, size), sent));
  EXPECT_TRUE(untouched(all.subspan(offset + size)));

  std::array<uint8_t, 4> part{};
  transfer.download(buffer, part.data(), offset + size - 3, part.size());
  EXPECT_TRUE(std::ranges::equal(all.subspan(offset + size - 3, 4), part));
}

TEST_F(TransferTest, RefusesToPassTheEnd) {
  GpuBuffer buffer(context, 100, BufferKind::Device, "small");
  std::vector<uint8_t> bytes(200);
  EXPECT_EQ(thrownText([&] { transfer.upload(buffer, bytes.data(), 60, 41); }), "upload past the end of 'small'");
  EXPECT_EQ(thrownText([&] { transfer.upload(buffer, bytes.data(), SIZE_MAX, 2); }), "upload past the end of 'small'");
}

}  // namespace
}  // namespace quor::gs
