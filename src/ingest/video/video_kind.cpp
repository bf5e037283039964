#include "ingest/video/video_kind.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>

#include "ingest/frame_extractor.h"
#include "ingest/video/track_decoder.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace quor {
namespace {

// The sphere is looked at this small, in grey.
constexpr int kWidth = 256;
constexpr int kHeight = 128;

struct GreyPicture {
  std::vector<int> value;
  int at(int x, int y) const { return value[static_cast<size_t>(y) * kWidth + static_cast<size_t>(x)]; }
};

double columnDifference(const GreyPicture& picture, int a, int b) {
  double sum = 0;
  for (int y = 0; y < kHeight; ++y) sum += std::abs(picture.at(a, y) - picture.at(b, y));
  return sum / kHeight;
}

double rowDeviation(const GreyPicture& picture, int y) {
  double sum = 0, squares = 0;
  for (int x = 0; x < kWidth; ++x) {
    sum += picture.at(x, y);
    squares += picture.at(x, y) * picture.at(x, y);
  }
  const double mean = sum / kWidth;
  return std::sqrt(std::max(0.0, squares / kWidth - mean * mean));
}

// The left and right edges of an equirectangular picture meet behind the camera, and its uppermost and lowest rows are
// one point each.
bool wrapsLikeSphere(const GreyPicture& picture) {
  double step = 0;
  for (int x = 0; x + 1 < kWidth; ++x) step += columnDifference(picture, x, x + 1) / (kWidth - 1);
  double rows = 0;
  for (int y = 0; y < kHeight; ++y) rows += rowDeviation(picture, y) / kHeight;
  const double poles = std::max(rowDeviation(picture, 0), rowDeviation(picture, kHeight - 1));
  return columnDifference(picture, kWidth - 1, 0) < 3 * step + 2 && poles < 0.5 * rows + 4;
}

// A picture from the middle, past black beginnings.
GreyPicture middlePicture(VideoFile& file, const VideoTrack& track) {
  const TrackPlan plan{track.stream,
                       track.videoIndex,
                       track.uprightFilters,
                       {"scale=" + std::to_string(kWidth) + ":" + std::to_string(kHeight) + ":flags=area,format=gray"},
                       {""}};
  TrackDecoder decoder(file, plan, 0);
  AVFormatContext& input = file.context();
  if (input.duration > 0) av_seek_frame(&input, -1, input.duration / 2, AVSEEK_FLAG_BACKWARD);
  GreyPicture picture;
  const auto keep = [&](size_t, int64_t, FramePtr frame) {
    if (!picture.value.empty()) return;
    for (int y = 0; y < kHeight; ++y) {
      const uint8_t* row = frame->data[0] + static_cast<ptrdiff_t>(y) * frame->linesize[0];
      picture.value.insert(picture.value.end(), row, row + kWidth);
    }
  };
  const PacketPtr packet = newPacket();
  while (picture.value.empty() && av_read_frame(&input, packet.get()) >= 0) {
    if (packet->stream_index == track.stream) decoder.decode(packet.get(), keep);
    av_packet_unref(packet.get());
  }
  if (picture.value.empty()) decoder.decode(nullptr, keep);
  if (picture.value.empty()) throw DecodeFailure("no picture could be decoded");
  return picture;
}

}  // namespace

std::optional<std::pair<size_t, size_t>> lensPair(const std::vector<VideoTrack>& tracks) {
  for (size_t a = 0; a < tracks.size(); ++a) {
    if (tracks[a].width != tracks[a].height) continue;
    for (size_t b = a + 1; b < tracks.size(); ++b) {
      if (tracks[b].width == tracks[a].width && tracks[b].height == tracks[a].height) return std::pair(a, b);
    }
  }
  return std::nullopt;
}

InputKind detectVideoKind(const std::filesystem::path& path) {
  try {
    const std::function<bool()> never = [] { return false; };
    VideoFile file(path, never);
    if (lensPair(file.tracks())) return InputKind::DualFisheye;
    const VideoTrack track = file.tracks()[0];
    if (track.width != 2 * track.height || track.projection == Projection::Flat) return InputKind::Video;
    if (track.projection == Projection::Equirectangular) return InputKind::Video360;
    return wrapsLikeSphere(middlePicture(file, track)) ? InputKind::Video360 : InputKind::Video;
  } catch (const std::exception&) {
    return InputKind::Video;
  }
}

}  // namespace quor
