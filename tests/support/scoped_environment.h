// Sets or unsets an environment variable and puts back what was there.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace quor::test {

class ScopedEnvironment {
 public:
  // A null value unsets the variable.
  ScopedEnvironment(const char* name, const char* value) : name_(name) {
    if (const char* before = std::getenv(name)) before_ = before;
    set(value);
  }
  ~ScopedEnvironment() { set(before_ ? before_->c_str() : nullptr); }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  void set(const char* value) const {
    if (value != nullptr) {
      ::setenv(name_.c_str(), value, 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }

  std::string name_;
  std::optional<std::string> before_;
};

}  // namespace quor::test
