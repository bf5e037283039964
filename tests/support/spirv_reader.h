// Reads from a SPIR-V module what its host side must agree with: bindings with their access, push size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace quor::gs {

class SpirvReader {
 public:
  explicit SpirvReader(std::span<const uint32_t> words) {
    for (size_t at = 5; at < words.size(); at += words[at] >> 16) {
      read(words[at] & 0xffffu, words.subspan(at + 1, (words[at] >> 16) - 1));
    }
  }

  // One word for each of the bindings 0, 1, ... of set 0, with blanks between: "ro", "wo" or "rw", "?" for a gap or
  // another set.
  std::string access() const {
    std::string text;
    for (const auto& [binding, variable] : bindings_) {  // by rising binding
      if (!text.empty()) text += ' ';
      const bool expected = binding == (text.size() + 1) / 3 && sets_.at(variable) == 0;
      text += expected ? accessOf(variable) : "?";
    }
    return text;
  }

  uint32_t pushBytes() const { return push_type_ == 0 ? 0 : sizeOf(push_type_); }

 private:
  struct Type {
    uint32_t opcode;
    std::vector<uint32_t> operands;
  };

  void read(uint32_t opcode, std::span<const uint32_t> operands) {
    enum { kTypeFirst = 19, kTypeLast = 39, kConstant = 43, kVariable = 59 };
    enum { kDecorate = 71, kMemberDecorate = 72 };
    enum { kNonWritable = 24, kNonReadable = 25, kBinding = 33, kSet = 34, kOffset = 35 };
    enum { kPushConstantClass = 9 };
    if (opcode >= kTypeFirst && opcode <= kTypeLast) {
      types_[operands[0]] = {opcode, {operands.begin() + 1, operands.end()}};
    } else if (opcode == kConstant) {
      constants_[operands[1]] = operands[2];
    } else if (opcode == kVariable) {
      variable_types_[operands[1]] = pointee(operands[0]);
      if (operands[2] == kPushConstantClass) push_type_ = pointee(operands[0]);
    } else if (opcode == kDecorate) {
      if (operands[1] == kBinding) bindings_[operands[2]] = operands[0];
      if (operands[1] == kSet) sets_[operands[0]] = operands[2];
      if (operands[1] == kNonWritable) not_written_.insert({operands[0], kWhole});
      if (operands[1] == kNonReadable) not_read_.insert({operands[0], kWhole});
    } else if (opcode == kMemberDecorate) {
      if (operands[2] == kOffset) offsets_[{operands[0], operands[1]}] = operands[3];
      if (operands[2] == kNonWritable) not_written_.insert({operands[0], operands[1]});
      if (operands[2] == kNonReadable) not_read_.insert({operands[0], operands[1]});
    }
  }

  uint32_t pointee(uint32_t pointer) const { return types_.at(pointer).operands[1]; }

  // A buffer's qualifiers may stand on the variable or on the members of its block.
  std::string accessOf(uint32_t variable) const {
    const uint32_t block = variable_types_.at(variable);
    const auto holds = [&](const std::set<std::pair<uint32_t, uint32_t>>& marked) {
      return marked.count({variable, kWhole}) > 0 || marked.count({block, 0}) > 0;
    };
    const bool readOnly = holds(not_written_);
    const bool writeOnly = holds(not_read_);
    return readOnly && writeOnly ? "?" : readOnly ? "ro" : writeOnly ? "wo" : "rw";
  }

  uint32_t sizeOf(uint32_t id) const {
    enum { kInt = 21, kFloat = 22, kVector = 23, kMatrix = 24, kArray = 28, kStruct = 30 };
    const Type& type = types_.at(id);
    switch (type.opcode) {
      case kInt:
      case kFloat:
        return type.operands[0] / 8;
      case kVector:
      case kMatrix:
        return sizeOf(type.operands[0]) * type.operands[1];
      case kArray:
        return sizeOf(type.operands[0]) * constants_.at(type.operands[1]);
      case kStruct: {
        const auto last = static_cast<uint32_t>(type.operands.size() - 1);
        return offsets_.at({id, last}) + sizeOf(type.operands[last]);
      }
      default:
        return 0;
    }
  }

  static constexpr uint32_t kWhole = UINT32_MAX;
  uint32_t push_type_ = 0;
  std::map<uint32_t, Type> types_;
  std::map<uint32_t, uint32_t> constants_, variable_types_, sets_;
  std::map<uint32_t, uint32_t> bindings_;  // binding to variable
  std::map<std::pair<uint32_t, uint32_t>, uint32_t> offsets_;
  std::set<std::pair<uint32_t, uint32_t>> not_written_, not_read_;
};

}  // namespace quor::gs
