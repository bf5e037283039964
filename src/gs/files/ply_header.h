// The header of a PLY file as far as its vertices need it: which properties a vertex has and where they lie.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <unordered_map>
#include <vector>

namespace quor::gs {

enum class PlyType { Int8, Uint8, Int16, Uint16, Int32, Uint32, Float32, Float64, Unknown };

size_t plyTypeSize(PlyType type);  // bytes; 0 for an unknown type
// A little-endian value; 0 for an unknown type.
double plyValue(PlyType type, const char* bytes);

struct PlyProperty {
  PlyType type = PlyType::Unknown;
  size_t offset = 0;  // bytes into a binary record
  size_t column = 0;  // values before it in an ASCII record
};

struct PlyHeader {
  std::string format;
  uint64_t vertexCount = 0;
  size_t stride = 0;   // bytes of a binary record
  size_t columns = 0;  // values of an ASCII record
  std::unordered_map<std::string, PlyProperty> properties;

  bool ascii() const { return format == "ascii"; }
  const PlyProperty* find(const std::string& name) const;
};

// Leaves the stream at the first byte of the body. Throws std::runtime_error; `path` stands in its sentences.
PlyHeader readPlyHeader(std::istream& stream, const std::string& path);

}  // namespace quor::gs
