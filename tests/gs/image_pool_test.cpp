#include <gmock/gmock.h>

#include "base/parallel.h"
#include "base/split_mix64.h"
#include "gs/data/host_image_cache.h"
#include "support/file_size_limit.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

namespace fs = std::filesystem;
using test::thrownText;

Image noise(int width, int height, uint64_t seed) {
  SplitMix64 random(seed);
  Image image{width, height, std::vector<uint8_t>(static_cast<size_t>(3 * width * height))};
  for (uint8_t& value : image.rgb) value = static_cast<uint8_t>(random.next());
  return image;
}

TEST(HostImageCache, GivesEveryPictureBackFromMemoryOrFileOnAnyThread) {
  const test::TempFolder folder;
  std::vector<StoredImage> stored(200);
  const auto original = [](size_t i) { return noise(64 + static_cast<int>(i % 7), 31, i); };
  {
    HostImageCache pool({folder.path(), 10 * 70 * 31 * 3});
    parallelFor(stored.size(), [&](size_t i) {
      stored[i] = pool.store(original(i));
      // While others are being stored.
      EXPECT_EQ(stored[i].pixels()->rgb, original(i).rgb) << i;
    });
    EXPECT_EQ(pool.filedImages(), 190u);  // any ten fit, and no eleven
  }
  EXPECT_TRUE(fs::is_empty(folder.path())) << "a killed run would leave it";
  const StoredImage kept(original(1));
  EXPECT_EQ(kept.pixels().get(), StoredImage(kept).pixels().get()) << "pixels in memory are shared, not copied";
  parallelFor(stored.size(), [&](size_t i) {
    const Image image = *stored[i].pixels();
    EXPECT_EQ(std::pair(image.width, image.height), std::pair(original(i).width, 31));
    EXPECT_EQ(image.rgb, original(i).rgb) << i;
  });
}

TEST(HostImageCache, SaysWhatToDoWhenTheDiskIsFull) {
  const test::TempFolder folder;
  HostImageCache pool({folder.path(), 1});
  const Image image = noise(1000, 400, 1);  // 1.2 MB
  const StoredImage first = pool.store(image);
  {
    const test::FileSizeLimit limit(2'000'000);
    EXPECT_EQ(thrownText([&] { pool.store(image); }),
              "The photographs do not fit into memory, and " + toUtf8(folder.path()) +
                  " cannot take the rest of them (at least 3 MB): File too large. Make room there, or lower the "
                  "training resolution.");
  }
  EXPECT_EQ(first.pixels()->rgb, image.rgb);

  HostImageCache nowhere({folder / "none", 1});
  EXPECT_THAT(thrownText([&] { nowhere.store(image); }), testing::HasSubstr("No such file or directory. Make room"));
}

}  // namespace
}  // namespace quor::gs
