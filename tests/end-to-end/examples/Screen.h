// SPDX-License-Identifier: Apache-2.0

// An X server without a monitor.
//
// Ownership: the destructor ends it.
// Errors: isThere() is false if there is none on this machine.
#pragma once

#include <sys/types.h>

#include <string>

namespace test {

class Screen {
 public:
  Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;
  ~Screen();
  [[nodiscard]] bool isThere() const { return !name_.empty(); }
  /// For DISPLAY.
  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  pid_t server_ = -1;
  std::string name_;
};

}  // namespace test
