#include "ingest/photo/exif.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace quor {
namespace {

using Bytes = std::span<const uint8_t>;

// Tags and types as the EXIF 2.32 and TIFF 6.0 standards number them.
enum Tag : uint16_t {
  kMake = 0x010f,
  kModel = 0x0110,
  kOrientation = 0x0112,
  kExifIfd = 0x8769,
  kGpsIfd = 0x8825,
  kFocalLength = 0x920a,
  kPixelXDimension = 0xa002,
  kPixelYDimension = 0xa003,
  kFocalPlaneXResolution = 0xa20e,
  kFocalPlaneResolutionUnit = 0xa210,
  kFocalLengthIn35mmFilm = 0xa405,
  // In the directory of the position.
  kGpsVersion = 0,
  kGpsLatitudeRef = 1,
  kGpsLatitude = 2,
  kGpsLongitudeRef = 3,
  kGpsLongitude = 4,
  kGpsAltitudeRef = 5,
  kGpsAltitude = 6,
};
enum Type : uint16_t { kByte = 1, kAscii = 2, kShort = 3, kLong = 4, kRational = 5, kSignedRational = 10 };

constexpr size_t kLongestText = 128;
constexpr double kBelowSeaLevel = 1;     // of kGpsAltitudeRef
constexpr double kMostAltitude = 20000;  // metres

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

  // One value of a numeric entry.
  std::optional<double> value(size_t directory, Tag tag, size_t index = 0) const {
    const std::optional<Entry> entry = find(directory, tag);
    if (!entry || index >= entry->count) return std::nullopt;
    const size_t size = sizeOf(entry->type);
    const bool inEntry = size * entry->count <= 4;
    const size_t at = (inEntry ? entry->valueAt : integer(entry->valueAt, 4).value_or(0)) + index * size;
    if (size == 0) return std::nullopt;
    if (size < 8) return integer(at, size);
    const auto above = integer(at, 4), below = integer(at + 4, 4);
    if (!below || *below == 0) return std::nullopt;
    const auto part = [&](uint32_t bits) {
      return entry->type == kSignedRational ? static_cast<double>(static_cast<int32_t>(bits)) : bits;
    };
    return part(*above) / part(*below);
  }

  // The first value of a numeric entry; 0 when it is missing or not positive.
  double number(size_t directory, Tag tag) const { return std::max(0.0, value(directory, tag).value_or(0)); }

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
  static size_t sizeOf(uint16_t type) {
    switch (type) {
      case kByte:
        return 1;
      case kShort:
        return 2;
      case kLong:
        return 4;
      case kRational:
      case kSignedRational:
        return 8;
      default:
        return 0;
    }
  }

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

// Degrees, minutes and seconds, of which the later ones may be missing.
std::optional<double> readAngle(const TiffReader& reader, size_t gps, Tag tag, Tag reference, char negative) {
  const std::optional<double> degrees = reader.value(gps, tag);
  if (!degrees) return std::nullopt;
  const double angle =
      *degrees + reader.value(gps, tag, 1).value_or(0) / 60 + reader.value(gps, tag, 2).value_or(0) / 3600;
  return reader.text(gps, reference).starts_with(negative) ? -angle : angle;
}

std::optional<GeoPosition> readPosition(const TiffReader& reader, size_t gps) {
  const auto latitude = readAngle(reader, gps, kGpsLatitude, kGpsLatitudeRef, 'S');
  const auto longitude = readAngle(reader, gps, kGpsLongitude, kGpsLongitudeRef, 'W');
  const auto altitude = reader.value(gps, kGpsAltitude);
  if (!latitude || !longitude || !altitude) return std::nullopt;
  const bool plausible =
      std::abs(*latitude) <= 90 && std::abs(*longitude) <= 180 && std::abs(*altitude) < kMostAltitude;
  if (!plausible || (*latitude == 0 && *longitude == 0)) return std::nullopt;
  const bool below = reader.value(gps, kGpsAltitudeRef) == kBelowSeaLevel;
  return GeoPosition{*latitude, *longitude, below ? -*altitude : *altitude};
}

// A little-endian directory; values that do not fit into its entries are stored behind it.
class DirectoryWriter {
 public:
  // `at` is where the directory will lie in the structure.
  DirectoryWriter(size_t at, size_t entries) : valuesAt_(at + 2 + 12 * entries + 4) { put(entries, 2); }

  void addShort(Tag tag, uint32_t value) { addEntry(tag, kShort, 1, value); }
  void addLong(Tag tag, uint32_t value) { addEntry(tag, kLong, 1, value); }
  void addBytes(Tag tag, size_t count, uint32_t packed) { addEntry(tag, kByte, count, packed); }
  void addThousandths(Tag tag, double value) { addRationals(tag, {{value, 1000}}); }
  // Fractions of values of 0 and more with their denominators.
  void addRationals(Tag tag, const std::vector<std::pair<double, uint32_t>>& values) {
    addEntry(tag, kRational, values.size(), static_cast<uint32_t>(valuesAt_ + values_.size()));
    for (const auto& [value, below] : values) {
      append(values_, static_cast<uint64_t>(std::round(value * below)), 4);
      append(values_, below, 4);
    }
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

std::vector<uint8_t> positionDirectory(size_t at, const GeoPosition& position) {
  constexpr uint32_t kVersion = 0x0302;           // 2.3.0.0, its first number in the lowest byte
  constexpr uint32_t kPartsOfASecond = 10000000;  // 3 micrometres on the ground
  DirectoryWriter gps(at, 7);
  const auto addAngle = [&](Tag reference, Tag tag, double angle, const char* side) {
    const double degrees = std::floor(std::abs(angle)), minutes = (std::abs(angle) - degrees) * 60;
    gps.addText(reference, side);
    gps.addRationals(tag,
                     {{degrees, 1}, {std::floor(minutes), 1}, {(minutes - std::floor(minutes)) * 60, kPartsOfASecond}});
  };
  gps.addBytes(kGpsVersion, 4, kVersion);
  addAngle(kGpsLatitudeRef, kGpsLatitude, position.latitude, position.latitude < 0 ? "S" : "N");
  addAngle(kGpsLongitudeRef, kGpsLongitude, position.longitude, position.longitude < 0 ? "W" : "E");
  gps.addBytes(kGpsAltitudeRef, 1, position.altitude < 0);
  gps.addThousandths(kGpsAltitude, std::abs(position.altitude));
  return gps.finish();
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
  if (const double gps = reader.number(main, kGpsIfd); gps > 0) {
    info.position = readPosition(reader, static_cast<size_t>(gps));
  }
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
  const size_t entries = size_t{2} + !info.make.empty() + !info.model.empty() + info.position.has_value();
  const auto mainDirectory = [&](size_t exifAt, size_t gpsAt) {
    DirectoryWriter main(kMainAt, entries);  // its tags in rising order
    if (!info.make.empty()) main.addText(kMake, info.make);
    if (!info.model.empty()) main.addText(kModel, info.model);
    main.addShort(kOrientation, 1);
    main.addLong(kExifIfd, static_cast<uint32_t>(exifAt));
    if (info.position) main.addLong(kGpsIfd, static_cast<uint32_t>(gpsAt));
    return main.finish();
  };
  const size_t exifAt = kMainAt + mainDirectory(0, 0).size();
  const auto focal35mm = static_cast<uint32_t>(std::lround(info.focal35mm));
  DirectoryWriter exif(exifAt, size_t{info.focalLength > 0} + (focal35mm > 0));
  if (info.focalLength > 0) exif.addThousandths(kFocalLength, info.focalLength);
  if (focal35mm > 0) exif.addShort(kFocalLengthIn35mmFilm, focal35mm);

  const std::vector<uint8_t> camera = exif.finish();
  const size_t gpsAt = exifAt + camera.size();
  const std::vector<uint8_t> place = info.position ? positionDirectory(gpsAt, *info.position) : std::vector<uint8_t>();

  std::vector<uint8_t> bytes = {'I', 'I', 42, 0, kMainAt, 0, 0, 0};
  for (const std::vector<uint8_t>& directory : {mainDirectory(exifAt, gpsAt), camera, place}) {
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
