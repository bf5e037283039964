#include "ingest/photo/exif.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace quor {
namespace {

using Bytes = std::span<const uint8_t>;

// Tags and types as the EXIF 2.32 and TIFF 6.0 standards number them.
enum Tag : uint16_t {
  kMake = 0x010f,
  kModel = 0x0110,
  kOrientation = 0x0112,
  kExifIfd = 0x8769,
  kFocalLength = 0x920a,
  kPixelXDimension = 0xa002,
  kPixelYDimension = 0xa003,
  kFocalPlaneXResolution = 0xa20e,
  kFocalPlaneResolutionUnit = 0xa210,
  kFocalLengthIn35mmFilm = 0xa405,
};
enum Type : uint16_t { kByte = 1, kAscii = 2, kShort = 3, kLong = 4, kRational = 5, kSignedRational = 10 };

constexpr size_t kLongestText = 128;

struct Entry {
  uint16_t type = 0;
  uint32_t count = 0;
  size_t valueAt = 0;  // where the value field lies: the value itself, or its offset
};

// Bounds-checks every read: a damaged file can hold any offset.
class TiffReader {
 public:
  explicit TiffReader(Bytes bytes) : bytes_(bytes) {}

  bool readHeader() {
    if (bytes_.size() < 8) return false;
    bigEndian_ = bytes_[0] == 'M';
    return bytes_[0] == bytes_[1] && (bytes_[0] == 'M' || bytes_[0] == 'I') && integer(2, 2) == 42;
  }

  std::optional<uint32_t> integer(size_t at, size_t size) const {
    if (at > bytes_.size() || size > bytes_.size() - at) return std::nullopt;
    uint32_t value = 0;
    for (size_t i = 0; i < size; ++i) value = value << 8 | bytes_[at + (bigEndian_ ? i : size - 1 - i)];
    return value;
  }

  std::optional<Entry> find(size_t directory, Tag tag) const {
    const uint32_t count = integer(directory, 2).value_or(0);
    for (size_t i = 0; i < count; ++i) {
      const size_t at = directory + 2 + 12 * i;
      const auto found = integer(at, 2);
      if (!found) break;
      if (*found != tag) continue;
      const auto type = integer(at + 2, 2), values = integer(at + 4, 4);
      if (!type || !values) break;
      return Entry{static_cast<uint16_t>(*type), *values, at + 8};
    }
    return std::nullopt;
  }

  // The first value of a numeric entry; 0 when it is missing or not positive.
  double number(size_t directory, Tag tag) const {
    const std::optional<Entry> entry = find(directory, tag);
    if (!entry || entry->count == 0) return 0;
    switch (entry->type) {
      case kByte:
        return integer(entry->valueAt, 1).value_or(0);
      case kShort:
        return integer(entry->valueAt, 2).value_or(0);
      case kLong:
        return integer(entry->valueAt, 4).value_or(0);
      case kRational:
      case kSignedRational: {
        const size_t at = integer(entry->valueAt, 4).value_or(0);
        const uint32_t above = integer(at, 4).value_or(0), below = integer(at + 4, 4).value_or(0);
        const bool negative = entry->type == kSignedRational && ((above | below) & 0x80000000u);
        return below == 0 || negative ? 0 : static_cast<double>(above) / below;
      }
      default:
        return 0;
    }
  }

  std::string text(size_t directory, Tag tag) const {
    const std::optional<Entry> entry = find(directory, tag);
    if (!entry || entry->type != kAscii) return {};
    const size_t at = entry->count <= 4 ? entry->valueAt : integer(entry->valueAt, 4).value_or(0);
    std::string text;
    for (size_t i = 0; i < std::min<size_t>(entry->count, kLongestText); ++i) {
      const auto c = integer(at + i, 1);
      if (!c || *c == 0) break;
      text += *c < 0x20 || *c > 0x7e ? '?' : static_cast<char>(*c);
    }
    text.erase(0, text.find_first_not_of(' '));
    return text.erase(text.find_last_not_of(' ') + 1);
  }

 private:
  Bytes bytes_;
  bool bigEndian_ = false;
};

double plausible(double focalLength) {
  return focalLength > 0.1 && focalLength < 10000 ? focalLength : 0;
}

// Millimetres of the sensor's long side.
double sensorLength(const TiffReader& reader, size_t exif) {
  const double pixels = std::max(reader.number(exif, kPixelXDimension), reader.number(exif, kPixelYDimension));
  const double perUnit = reader.number(exif, kFocalPlaneXResolution);
  const double unit = reader.number(exif, kFocalPlaneResolutionUnit);
  if (pixels <= 0 || perUnit <= 0) return 0;
  return pixels / perUnit * (unit == 3 ? 10 : unit == 4 ? 1 : unit == 5 ? 0.001 : 25.4);
}

// A little-endian directory; values that do not fit into its entries are stored behind it.
class DirectoryWriter {
 public:
  // `at` is where the directory will lie in the structure.
  DirectoryWriter(size_t at, size_t entries) : valuesAt_(at + 2 + 12 * entries + 4) { put(entries, 2); }

  void addShort(Tag tag, uint32_t value) { addEntry(tag, kShort, 1, value); }
  void addLong(Tag tag, uint32_t value) { addEntry(tag, kLong, 1, value); }
  void addThousandths(Tag tag, double value) {
    addEntry(tag, kRational, 1, static_cast<uint32_t>(valuesAt_ + values_.size()));
    for (const double part : {std::round(value * 1000), 1000.0}) append(values_, static_cast<uint64_t>(part), 4);
  }
  void addText(Tag tag, const std::string& text) {
    const size_t size = text.size() + 1;
    if (size <= 4) {
      uint32_t packed = 0;
      for (size_t i = 0; i < text.size(); ++i) packed |= uint32_t{static_cast<uint8_t>(text[i])} << (8 * i);
      return addEntry(tag, kAscii, size, packed);
    }
    addEntry(tag, kAscii, size, static_cast<uint32_t>(valuesAt_ + values_.size()));
    values_.insert(values_.end(), text.begin(), text.end());
    values_.insert(values_.end(), 2 - size % 2, 0);  // values begin at even offsets
  }

  std::vector<uint8_t> finish() {
    put(0, 4);  // no further directory
    bytes_.insert(bytes_.end(), values_.begin(), values_.end());
    return std::move(bytes_);
  }

 private:
  static void append(std::vector<uint8_t>& to, uint64_t value, size_t size) {
    for (size_t i = 0; i < size; ++i) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
  }
  void put(uint64_t value, size_t size) { append(bytes_, value, size); }
  void addEntry(Tag tag, Type type, size_t count, uint32_t value) {
    put(tag, 2);
    put(type, 2);
    put(count, 4);
    put(value, 4);
  }

  size_t valuesAt_;
  std::vector<uint8_t> bytes_;
  std::vector<uint8_t> values_;
};

bool startsWith(Bytes bytes, std::string_view text) {
  return bytes.size() >= text.size() && std::memcmp(bytes.data(), text.data(), text.size()) == 0;
}

// The chunks of a PNG or RIFF file have a name and a length in front of their data.
Bytes findChunk(Bytes chunks, std::string_view name, bool png) {
  const size_t lengthAt = png ? 0 : 4, nameAt = png ? 4 : 0;
  while (chunks.size() >= 8) {
    uint64_t length = 0;
    for (size_t i = 0; i < 4; ++i) length = length << 8 | chunks[lengthAt + (png ? i : 3 - i)];
    const Bytes data = chunks.subspan(8);
    if (length > data.size()) return {};
    if (startsWith(chunks.subspan(nameAt), name)) return data.first(length);
    // A checksum follows in PNG; RIFF pads to even lengths.
    chunks = data.subspan(std::min<uint64_t>(data.size(), png ? length + 4 : length + length % 2));
  }
  return {};
}

}  // namespace

PhotoInfo parseExif(Bytes tiff) {
  PhotoInfo info;
  TiffReader reader(tiff);
  if (!reader.readHeader()) return info;
  const size_t main = reader.integer(4, 4).value_or(0);
  if (const double turn = reader.number(main, kOrientation); turn >= 1 && turn <= 8) {
    info.orientation = static_cast<int>(turn);
  }
  info.make = reader.text(main, kMake);
  info.model = reader.text(main, kModel);
  const auto exif = static_cast<size_t>(reader.number(main, kExifIfd));
  if (exif == 0) return info;
  info.focalLength = plausible(reader.number(exif, kFocalLength));
  info.focal35mm = plausible(reader.number(exif, kFocalLengthIn35mmFilm));
  if (const double length = sensorLength(reader, exif); info.focal35mm == 0 && length > 0) {
    info.focal35mm = plausible(info.focalLength * 36 / length);  // a 35 mm frame is 36 mm long
  }
  return info;
}

std::vector<uint8_t> writeExif(const PhotoInfo& info) {
  constexpr size_t kMainAt = 8;
  const size_t entries = size_t{2} + !info.make.empty() + !info.model.empty();
  const auto mainDirectory = [&](size_t exifAt) {
    DirectoryWriter main(kMainAt, entries);  // its tags in rising order
    if (!info.make.empty()) main.addText(kMake, info.make);
    if (!info.model.empty()) main.addText(kModel, info.model);
    main.addShort(kOrientation, 1);
    main.addLong(kExifIfd, static_cast<uint32_t>(exifAt));
    return main.finish();
  };
  const size_t exifAt = kMainAt + mainDirectory(0).size();
  const auto focal35mm = static_cast<uint32_t>(std::lround(info.focal35mm));
  DirectoryWriter exif(exifAt, size_t{info.focalLength > 0} + (focal35mm > 0));
  if (info.focalLength > 0) exif.addThousandths(kFocalLength, info.focalLength);
  if (focal35mm > 0) exif.addShort(kFocalLengthIn35mmFilm, focal35mm);

  std::vector<uint8_t> bytes = {'I', 'I', 42, 0, kMainAt, 0, 0, 0};
  for (const std::vector<uint8_t>& directory : {mainDirectory(exifAt), exif.finish()}) {
    bytes.insert(bytes.end(), directory.begin(), directory.end());
  }
  return bytes;
}

Bytes findPngExif(Bytes file) {
  return file.size() < 8 ? Bytes() : findChunk(file.subspan(8), "eXIf", true);
}

Bytes findWebpExif(Bytes file) {
  return file.size() < 12 ? Bytes() : withoutExifMark(findChunk(file.subspan(12), "EXIF", false));
}

Bytes withoutExifMark(Bytes block) {
  return startsWith(block, "Exif") && block.size() >= 6 ? block.subspan(6) : block;
}

}  // namespace quor
