#include "base/platform/posix/code_map.h"

#include <fcntl.h>
#include <link.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace quor {
namespace {

class FileBytes {
 public:
  explicit FileBytes(const char* path) : file_(open(path, O_RDONLY | O_CLOEXEC)) {}
  ~FileBytes() { close(file_); }
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;

  // False at the end.
  bool next(char& c) {
    if (position_ == count_) {
      const ssize_t got = ::read(file_, bytes_, sizeof bytes_);
      if (got <= 0) return false;
      count_ = static_cast<size_t>(got);
      position_ = 0;
    }
    c = bytes_[position_++];
    return true;
  }
  // A number in hexadecimal and the character after it.
  uint64_t hex(char& after) {
    uint64_t value = 0;
    while (next(after)) {
      const bool digit = after >= '0' && after <= '9';
      if (!digit && !(after >= 'a' && after <= 'f')) break;
      value = value << 4 | static_cast<uint64_t>(digit ? after - '0' : after - 'a' + 10);
    }
    return value;
  }

 private:
  int file_;
  size_t position_ = 0, count_ = 0;
  char bytes_[2048];
};

template <class T>
bool readMemory(uintptr_t address, T& value) {
  const iovec to{&value, sizeof value};
  const iovec from{reinterpret_cast<void*>(address), sizeof value};
  return process_vm_readv(getpid(), &to, 1, &from, 1, 0) == static_cast<ssize_t>(sizeof value);
}

// The difference between addresses in the file mapped at `begin` and the addresses of its symbols.
bool readBias(uintptr_t begin, uintptr_t& bias) {
  ElfW(Ehdr) file;
  if (!readMemory(begin, file) || std::memcmp(file.e_ident, ELFMAG, SELFMAG) != 0) return false;
  for (size_t i = 0; i < file.e_phnum; ++i) {
    ElfW(Phdr) segment;
    if (!readMemory(begin + file.e_phoff + i * sizeof segment, segment)) return false;
    if (segment.p_type != PT_LOAD) continue;
    bias = begin - (segment.p_vaddr - segment.p_offset);
    return true;
  }
  return false;
}

}  // namespace

struct CodeMap::Line {
  uintptr_t begin, end;
  bool readable, executable;
  uint64_t offset, file;  // file: its number on its disk; 0: memory of no file
  char module[sizeof Code::module];

  bool read(FileBytes& bytes) {
    char c = 0;
    begin = bytes.hex(c);
    if (c != '-') return false;
    end = bytes.hex(c);
    char permissions[4] = {};
    for (char& permission : permissions) bytes.next(permission);
    readable = permissions[0] == 'r';
    executable = permissions[2] == 'x';
    bytes.next(c);
    offset = bytes.hex(c);
    while (bytes.next(c) && c != ' ') continue;  // the disk
    file = bytes.hex(c);                         // decimal, but it only has to differ
    size_t length = 0;
    while (c != '\n' && bytes.next(c)) {
      if (c == '/' || (c == ' ' && length == 0)) {
        length = 0;
      } else if (c != '\n' && length + 1 < sizeof module) {
        module[length++] = c;
      }
    }
    module[length] = '\0';
    return c == '\n';
  }
};

void CodeMap::read(uintptr_t stackPointer, uintptr_t address) {
  codeCount_ = stackCount_ = 0;
  stackPointer_ = stackPointer;
  address_ = address;
  addressIsReadable_ = false;
  fileBegin_ = fileNumber_ = 0;
  FileBytes bytes("/proc/self/maps");
  Line line;
  while (line.read(bytes)) add(line);
}

void CodeMap::add(const Line& line) {
  if (line.readable && line.begin <= address_ && address_ < line.end) addressIsReadable_ = true;
  const uintptr_t stackEnd = stackPointer_ + kStackSlots * sizeof(uint64_t);
  if (line.readable && line.begin < stackEnd && stackPointer_ < line.end && stackCount_ < stack_.size()) {
    stack_[stackCount_++] = {line.begin, line.end};
  }
  if (line.file == 0) return;
  if (line.offset == 0 && line.file != fileNumber_) {
    fileBegin_ = line.begin;
    fileNumber_ = line.file;
  }
  if (!line.executable || codeCount_ == code_.size()) return;
  Code& code = code_[codeCount_++];
  code.begin = line.begin;
  code.end = line.end;
  if (line.file != fileNumber_ || !readBias(fileBegin_, code.bias)) code.bias = line.begin - line.offset;
  std::memcpy(code.module, line.module, sizeof code.module);
}

CodeLocation CodeMap::find(uintptr_t address) const {
  const auto* end = code_.begin() + codeCount_;
  const auto* found =
      std::find_if(code_.begin(), end, [&](const Code& code) { return code.begin <= address && address < code.end; });
  if (found == end) return {};
  return {found->module, address - found->bias};
}

bool CodeMap::stackSlotIsReadable(uintptr_t slot) const {
  return std::any_of(stack_.begin(), stack_.begin() + stackCount_,
                     [&](const Range& range) { return range.begin <= slot && slot + sizeof(uint64_t) <= range.end; });
}

}  // namespace quor
