#include "gs/files/ply.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "gs/files/ply_header.h"
#include "gs/splats/sh.h"

namespace quor::gs {
namespace {

constexpr size_t kRecordFloats = 62;
constexpr uint64_t kBlock = 65536;    // splats converted and written at a time
constexpr uint64_t kReadBlock = 512;  // read and converted at a time: they stay in the processor's cache

std::string headerText(const GaussianSet& set, const std::string& comment) {
  std::string text = "ply\nformat binary_little_endian 1.0\n";
  if (!comment.empty()) text += "comment " + comment + "\n";
  text += "element vertex " + std::to_string(set.count) + "\n";
  const auto property = [&](const std::string& name) { text += "property float " + name + "\n"; };
  for (const char* name : {"x", "y", "z", "nx", "ny", "nz", "f_dc_0", "f_dc_1", "f_dc_2"}) property(name);
  for (size_t k = 0; k < kShRestFloats; ++k) property("f_rest_" + std::to_string(k));
  for (const char* name : {"opacity", "scale_0", "scale_1", "scale_2", "rot_0", "rot_1", "rot_2", "rot_3"}) {
    property(name);
  }
  return text + "end_header\n";
}

void fillRecord(const GaussianSet& set, uint64_t i, float* out) {
  out = std::copy_n(&set.positions[3 * i], 3, out);
  out = std::fill_n(out, 3, 0.0f);
  out = std::copy_n(&set.shDc[3 * i], 3, out);
  const float* rest = &set.shRest[kShRestFloats * i];
  for (size_t c = 0; c < 3; ++c) {
    for (size_t k = 0; k < kShRestCoefficients; ++k) *out++ = rest[k * 3 + c];
  }
  *out++ = set.opacities[i];
  out = std::copy_n(&set.scales[3 * i], 3, out);
  std::copy_n(&set.rotations[4 * i], 4, out);
}

// Where one float of a splat comes from; without a property it is the fallback for every splat.
struct Source {
  Group group;
  size_t element;
  std::optional<PlyProperty> property;
  float fallback;
};

std::optional<PlyProperty> propertyOf(const PlyHeader& header, const std::string& name) {
  const PlyProperty* found = header.find(name);
  return found ? std::optional(*found) : std::nullopt;
}

// Coefficients a channel, counted over f_rest_0, f_rest_1, ... up to the first that is missing.
size_t restCoefficients(const PlyHeader& header) {
  size_t count = 0;
  while (header.find("f_rest_" + std::to_string(count))) ++count;
  return count / 3;
}

int32_t degreeOf(size_t coefficients) {
  if (coefficients < 3) return 0;
  if (coefficients < 8) return 1;
  return coefficients < 15 ? 2 : 3;
}

std::vector<Source> splatSources(const PlyHeader& header) {
  std::vector<Source> sources;
  const auto add = [&](Group group, size_t element, const std::string& name, float fallback) {
    sources.push_back({group, element, propertyOf(header, name), fallback});
  };
  const size_t coefficients = restCoefficients(header);
  // What lies above the degree that the file is taken for stays zero, as everywhere in the program.
  const auto degree = static_cast<size_t>(degreeOf(coefficients));
  const size_t used = std::min(coefficients, (degree + 1) * (degree + 1) - 1);
  for (size_t c = 0; c < 3; ++c) {
    add(kShDc, c, "f_dc_" + std::to_string(c), 0.0f);
    for (size_t k = 0; k < used; ++k) add(kShRest, k * 3 + c, "f_rest_" + std::to_string(c * coefficients + k), 0.0f);
    add(kScales, c, "scale_" + std::to_string(c), -5.0f);
  }
  add(kOpacities, 0, "opacity", 0.0f);
  for (size_t r = 0; r < 4; ++r) add(kRotations, r, "rot_" + std::to_string(r), r == 0 ? 1.0f : 0.0f);
  return sources;
}

// A plain point cloud: near-opaque balls of a centimetre in the file's units.
std::vector<Source> pointSources(const PlyHeader& header) {
  std::vector<Source> sources;
  const char* colours[] = {"red", "green", "blue"};
  for (size_t c = 0; c < 3; ++c) {
    sources.push_back({kShDc, c, propertyOf(header, colours[c]), 200.0f});
    sources.push_back({kScales, c, std::nullopt, std::log(0.01f)});
  }
  sources.push_back({kOpacities, 0, std::nullopt, 4.0f});
  sources.push_back({kRotations, 0, std::nullopt, 1.0f});
  return sources;
}

// Reads vertices block by block, binary or ASCII, and hands out their values.
class VertexReader {
 public:
  VertexReader(std::istream& stream, const PlyHeader& header) : stream_(stream), header_(header) {}

  bool read(size_t vertices) {
    if (!header_.ascii()) {
      records_.resize(vertices * header_.stride);
      return bool(stream_.read(records_.data(), static_cast<std::streamsize>(records_.size())));
    }
    values_.resize(vertices * header_.columns);
    return std::all_of(values_.begin(), values_.end(), [&](double& value) { return readNumber(value); });
  }

  // Of the block's vertex `i`.
  float value(const PlyProperty& property, size_t i) const {
    if (header_.ascii()) return static_cast<float>(values_[i * header_.columns + property.column]);
    const char* bytes = records_.data() + i * header_.stride + property.offset;
    if (property.type != PlyType::Float32) return static_cast<float>(plyValue(property.type, bytes));
    float value;
    std::memcpy(&value, bytes, sizeof(value));
    return value;
  }

 private:
  // from_chars, unlike a stream, reads "nan" and "inf" and knows no locale.
  bool readNumber(double& value) {
    if (!(stream_ >> token_)) return false;
    const char* first = token_.data() + (token_[0] == '+' ? 1 : 0);
    const char* last = token_.data() + token_.size();
    const auto [end, error] = std::from_chars(first, last, value);
    return error == std::errc() && end == last;
  }

  std::istream& stream_;
  const PlyHeader& header_;
  std::vector<char> records_;
  std::vector<double> values_;
  std::string token_;
};

bool isSplatFile(const PlyHeader& header) {
  return header.find("scale_0") && header.find("rot_0") && header.find("opacity");
}

void readVertices(std::istream& stream, const PlyHeader& header, const std::string& path, GaussianSet& set) {
  const bool splats = isSplatFile(header);
  std::vector<Source> sources = splats ? splatSources(header) : pointSources(header);
  const char* axes[] = {"x", "y", "z"};
  for (size_t a = 0; a < 3; ++a) sources.push_back({kPositions, a, propertyOf(header, axes[a]), 0.0f});

  VertexReader reader(stream, header);
  uint64_t n = 0;
  for (uint64_t first = 0; first < header.vertexCount; first += n) {
    n = std::min(kReadBlock, header.vertexCount - first);
    if (!reader.read(n)) throw std::runtime_error("Truncated PLY: " + path);
    set.resize(first + n);  // the header's count is only a claim: room is made as vertices arrive
    for (const Source& source : sources) {
      const size_t width = kGroupWidths[source.group];
      float* out = set.group(source.group).data() + first * width + source.element;
      for (uint64_t i = 0; i < n; ++i) {
        float value = source.property ? reader.value(*source.property, i) : source.fallback;
        if (!splats && source.group == kShDc) value = shDcFromColour(value);
        out[i * width] = value;
      }
    }
  }
}

}  // namespace

void writePly(const std::filesystem::path& path, const GaussianSet& set, const std::string& comment) {
  AtomicFile file(path);
  const std::string header = headerText(set, comment);
  file.stream().write(header.data(), static_cast<std::streamsize>(header.size()));
  std::vector<float> block(std::min(set.count, kBlock) * kRecordFloats);
  for (uint64_t first = 0; first < set.count && file.good(); first += kBlock) {
    const uint64_t n = std::min(kBlock, set.count - first);
    for (uint64_t i = 0; i < n; ++i) fillRecord(set, first + i, &block[i * kRecordFloats]);
    file.stream().write(reinterpret_cast<const char*>(block.data()),
                        static_cast<std::streamsize>(n * kRecordFloats * sizeof(float)));
  }
  file.commit();
}

GaussianSet readPly(const std::filesystem::path& path) {
  const std::string name = toUtf8(path);
  std::ifstream stream(path, std::ios::binary);
  // A folder opens as a stream, too, and only fails to read.
  if (!stream || std::filesystem::is_directory(path)) throw std::runtime_error("Cannot open " + name);
  const PlyHeader header = readPlyHeader(stream, name);
  GaussianSet set;
  set.shDegree = degreeOf(restCoefficients(header));
  readVertices(stream, header, name, set);
  return set;
}

}  // namespace quor::gs
