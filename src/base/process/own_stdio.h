// Standard input and output reserved for one protocol with the parent process. While it lives, other output to standard
// output, from a library or a child, goes to standard error and cannot break the protocol.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace quor {

class OwnStdio {
 public:
  OwnStdio();   // throws std::runtime_error
  ~OwnStdio();  // standard output is everybody's again
  OwnStdio(const OwnStdio&) = delete;
  OwnStdio& operator=(const OwnStdio&) = delete;

  // Waits for bytes and returns how many there are; 0 once the other side has closed its end, or after an interrupt
  // (base/terminal.h counts them).
  size_t read(std::span<char> buffer);
  // Writes all of it; false once the reader is gone, or after an interrupt.
  bool write(std::string_view bytes);

  // Whether standard input is a terminal.
  bool interactive() const;

 private:
  int out_ = -1;
};

}  // namespace quor
