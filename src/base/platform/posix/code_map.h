// The layout of this process's memory, read from /proc/self/maps without allocating or locking, so that the
// handler of a crash can ask.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/crash/crash_report.h"

namespace quor {

class CodeMap {
 public:
  // Reads the map anew. `stackPointer`: where the look through the stack will begin; `address`: what the crash was
  // about, or 0.
  void read(uintptr_t stackPointer, uintptr_t address);

  // The file that the code at `address` was loaded from, with the offset as the file's symbols count it; unknown when
  // there is no code of a file. The module's name lives until the next read().
  CodeLocation find(uintptr_t address) const;

  bool stackSlotIsReadable(uintptr_t slot) const;
  bool addressIsReadable() const { return addressIsReadable_; }

 private:
  struct Code {
    uintptr_t begin, end, bias;
    char module[96];
  };
  struct Range {
    uintptr_t begin, end;
  };
  struct Line;
  void add(const Line& line);

  std::array<Code, 1024> code_;
  size_t codeCount_ = 0;
  std::array<Range, 16> stack_;  // all that is readable of the part of the stack to be looked through
  size_t stackCount_ = 0;
  uintptr_t stackPointer_ = 0, address_ = 0;
  bool addressIsReadable_ = false;
  uintptr_t fileBegin_ = 0;  // where the file that is being read through begins in memory, and its number
  uint64_t fileNumber_ = 0;
};

}  // namespace quor
