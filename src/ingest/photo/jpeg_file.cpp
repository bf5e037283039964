#include "ingest/photo/jpeg_file.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "ingest/photo/exif.h"

namespace quor {
namespace {

using Bytes = std::span<const uint8_t>;

enum Marker : uint8_t {
  kStartOfFrame0 = 0xc0,  // baseline
  kStartOfFrame2 = 0xc2,  // progressive; 1 is extended sequential
  kRestart0 = 0xd0,
  kRestart7 = 0xd7,
  kEndOfImage = 0xd9,
  kApp0 = 0xe0,
  kApp1 = 0xe1,
  kApp14 = 0xee,
};
constexpr std::string_view kExifMark("Exif\0\0", 6);

bool startsWith(Bytes bytes, std::string_view text) {
  return bytes.size() >= text.size() && std::memcmp(bytes.data(), text.data(), text.size()) == 0;
}

size_t segmentLength(Bytes file, size_t at) {
  return at + 2 > file.size() ? 0 : size_t{file[at]} << 8 | file[at + 1];
}

// The offset of the next marker's code, or the file's size. In entropy-coded data 0xff followed by 0 or a restart code
// is not a marker; fill bytes (0xff) may precede a code.
size_t nextMarker(Bytes file, size_t at) {
  for (; at + 1 < file.size(); ++at) {
    const void* found = std::memchr(file.data() + at, 0xff, file.size() - at - 1);
    if (!found) break;
    at = static_cast<size_t>(static_cast<const uint8_t*>(found) - file.data());
    const uint8_t code = file[at + 1];
    if (code != 0 && code != 0xff && !(code >= kRestart0 && code <= kRestart7)) return at + 1;
  }
  return file.size();
}

// `header`: precision, height, width, then three bytes for each component, its name first. `rgb`: Adobe's programs have
// marked the samples as not transformed.
bool commonFrame(uint8_t marker, Bytes header, bool rgb) {
  if (marker > kStartOfFrame2 || header.size() < 6 || header[0] != 8) return false;
  const size_t components = header[5];
  const bool namedRgb = header.size() >= 15 && header[6] == 'R' && header[9] == 'G' && header[12] == 'B';
  return components == 1 || (components == 3 && !namedRgb && !rgb);
}

bool isFrameHeader(uint8_t marker) {
  // 0xc4, 0xc8 and 0xcc lie in this range but mean other segments.
  return marker == kStartOfFrame0 || (marker > kStartOfFrame0 && marker < kRestart0 && marker % 4 != 0);
}

}  // namespace

JpegFile readJpegSegments(Bytes file) {
  JpegFile result;
  bool rgb = false;
  uint8_t frameMarker = kEndOfImage;
  Bytes frame;
  for (size_t at = nextMarker(file, 2); at < file.size();) {
    const uint8_t marker = file[at++];
    if (marker == kEndOfImage) {
      result.picture = file.first(at);
      break;
    }
    const size_t length = segmentLength(file, at);
    if (length < 2 || length > file.size() - at) break;
    const Bytes data = file.subspan(at + 2, length - 2);
    if (marker == kApp1 && result.exif.empty() && startsWith(data, "Exif")) result.exif = withoutExifMark(data);
    if (marker == kApp14 && startsWith(data, "Adobe") && data.size() >= 12) rgb = data[11] == 0;
    if (isFrameHeader(marker)) {
      frameMarker = marker;
      frame = data;
    }
    at = nextMarker(file, at + length);
  }
  if (frame.size() >= 6) {
    result.height = frame[1] << 8 | frame[2];
    result.width = frame[3] << 8 | frame[4];
  }
  result.common = commonFrame(frameMarker, frame, rgb);
  return result;
}

std::vector<uint8_t> insertExif(Bytes jpeg, Bytes exif) {
  // Behind the JFIF segment, which must come first where there is one.
  size_t at = 2;
  if (jpeg.size() > 4 && jpeg[2] == 0xff && jpeg[3] == kApp0) at = std::min(jpeg.size(), 4 + segmentLength(jpeg, 4));
  const size_t length = 2 + kExifMark.size() + exif.size();
  std::vector<uint8_t> result(jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(at));
  result.reserve(jpeg.size() + length + 2);
  for (const size_t byte : {size_t{0xff}, size_t{kApp1}, length >> 8, length & 0xff}) {
    result.push_back(static_cast<uint8_t>(byte));
  }
  result.insert(result.end(), kExifMark.begin(), kExifMark.end());
  result.insert(result.end(), exif.begin(), exif.end());
  result.insert(result.end(), jpeg.begin() + static_cast<std::ptrdiff_t>(at), jpeg.end());
  return result;
}

}  // namespace quor
