// Standard input and output as one protocol's own line to whoever started the program. While it lives, whatever else
// prints to standard output, a library or a child, lands on standard error and cannot break the protocol.
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
  // All of it; false once nobody reads any more, or after an interrupt.
  bool write(std::string_view bytes);

  // Whether a person types.
  bool interactive() const;

 private:
  int out_ = -1;
};

}  // namespace quor
