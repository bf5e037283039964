// A failure while media become frames. The text is a whole sentence for the user, or "Cancelled".
#pragma once

#include <stdexcept>

namespace quor {

struct IngestError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace quor
