// Standard input and output, reserved for the protocol that is spoken with the program's parent. While it lives,
// anything that a library or a child prints to standard output goes to standard error and cannot break the protocol.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace quor {

class OwnStdio {
 public:
  OwnStdio();   // throws std::runtime_error
  ~OwnStdio();  // gives standard output back
  OwnStdio(const OwnStdio&) = delete;
  OwnStdio& operator=(const OwnStdio&) = delete;

  // Waits for bytes and returns how many there are; 0 once the other side has closed its end, or after an interrupt
  // (counted in base/process/terminal.h).
  size_t read(std::span<char> buffer);
  // Writes all bytes; false once the reader has gone, or after an interrupt.
  bool write(std::string_view bytes);

  // Whether standard input is a terminal.
  bool interactive() const;

 private:
  int out_ = -1;
};

}  // namespace quor
