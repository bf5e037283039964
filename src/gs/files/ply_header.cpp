#include "gs/files/ply_header.h"

#include <bit>
#include <charconv>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace quor::gs {

static_assert(std::endian::native == std::endian::little, "values are copied from little-endian files as they stand");

namespace {

PlyType parseType(const std::string& name) {
  static const std::unordered_map<std::string, PlyType> kTypes = {
      {"char", PlyType::Int8},      {"int8", PlyType::Int8},       {"uchar", PlyType::Uint8},
      {"uint8", PlyType::Uint8},    {"short", PlyType::Int16},     {"int16", PlyType::Int16},
      {"ushort", PlyType::Uint16},  {"uint16", PlyType::Uint16},   {"int", PlyType::Int32},
      {"int32", PlyType::Int32},    {"uint", PlyType::Uint32},     {"uint32", PlyType::Uint32},
      {"float", PlyType::Float32},  {"float32", PlyType::Float32}, {"double", PlyType::Float64},
      {"float64", PlyType::Float64}};
  const auto found = kTypes.find(name);
  return found == kTypes.end() ? PlyType::Unknown : found->second;
}

template <typename T>
double load(const char* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof(T));
  return static_cast<double>(value);
}

uint64_t parseCount(const std::string& text, const std::string& path) {
  uint64_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || end != text.data() + text.size()) {
    throw std::runtime_error("The PLY header has no valid vertex count: " + path);
  }
  return count;
}

// What the lines before the current one have said.
struct Parser {
  PlyHeader header;
  size_t elements = 0;
  bool vertexFirst = false;
  bool inVertex = false;
  std::string vertexCount;

  void element(std::istringstream& words) {
    std::string name, count;
    words >> name >> count;
    inVertex = elements == 0 && name == "vertex";
    if (inVertex) {
      vertexFirst = true;
      vertexCount = count;
    }
    ++elements;
  }

  void property(std::istringstream& words, const std::string& path) {
    if (!inVertex) return;
    std::string type, name;
    words >> type >> name;
    if (type == "list") throw std::runtime_error("Unsupported list property on vertices in " + path);
    const PlyProperty property{parseType(type), header.stride, header.columns};
    header.properties.emplace(name, property);
    header.stride += plyTypeSize(property.type);
    ++header.columns;
  }
};

// A binary property of an unknown type takes no bytes: it is as good as missing, and vertices made of nothing else
// would never reach the end of the file.
bool holdsValues(const PlyHeader& header, const char* name) {
  const PlyProperty* property = header.find(name);
  return property && (header.ascii() || property->type != PlyType::Unknown);
}

void check(const Parser& parser, const std::string& path) {
  const PlyHeader& header = parser.header;
  if (!parser.vertexFirst) throw std::runtime_error("PLY vertex element must come first: " + path);
  if (header.format != "binary_little_endian" && header.format != "ascii") {
    throw std::runtime_error("Unsupported PLY format '" + header.format + "' in " + path);
  }
  if (!holdsValues(header, "x") || !holdsValues(header, "y") || !holdsValues(header, "z")) {
    throw std::runtime_error(path + " has no vertex positions");
  }
}

bool readLine(std::istream& stream, std::string& line) {
  if (!std::getline(stream, line)) return false;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return true;
}

}  // namespace

size_t plyTypeSize(PlyType type) {
  switch (type) {
    case PlyType::Int8:
    case PlyType::Uint8:
      return 1;
    case PlyType::Int16:
    case PlyType::Uint16:
      return 2;
    case PlyType::Int32:
    case PlyType::Uint32:
    case PlyType::Float32:
      return 4;
    case PlyType::Float64:
      return 8;
    case PlyType::Unknown:
      break;
  }
  return 0;
}

double plyValue(PlyType type, const char* bytes) {
  switch (type) {
    case PlyType::Int8:
      return load<int8_t>(bytes);
    case PlyType::Uint8:
      return load<uint8_t>(bytes);
    case PlyType::Int16:
      return load<int16_t>(bytes);
    case PlyType::Uint16:
      return load<uint16_t>(bytes);
    case PlyType::Int32:
      return load<int32_t>(bytes);
    case PlyType::Uint32:
      return load<uint32_t>(bytes);
    case PlyType::Float32:
      return load<float>(bytes);
    case PlyType::Float64:
      return load<double>(bytes);
    case PlyType::Unknown:
      break;
  }
  return 0;
}

const PlyProperty* PlyHeader::find(const std::string& name) const {
  const auto found = properties.find(name);
  return found == properties.end() ? nullptr : &found->second;
}

PlyHeader readPlyHeader(std::istream& stream, const std::string& path) {
  std::string line;
  if (!readLine(stream, line) || !line.starts_with("ply")) throw std::runtime_error(path + " is not a PLY file");
  Parser parser;
  while (true) {
    if (!readLine(stream, line)) throw std::runtime_error(path + " has no end_header");
    std::istringstream words(line);
    std::string key;
    words >> key;
    if (key == "format") {
      words >> parser.header.format;
    } else if (key == "element") {
      parser.element(words);
    } else if (key == "property") {
      parser.property(words, path);
    } else if (key == "end_header") {
      break;
    }
  }
  check(parser, path);
  parser.header.vertexCount = parseCount(parser.vertexCount, path);
  return parser.header;
}

}  // namespace quor::gs
