// SPDX-License-Identifier: Apache-2.0

// Sets an environment variable, or unsets it for null, until the end of a scope.
//
// Threading: as for setenv; no other thread may read the environment meanwhile.
// Ownership: keeps a copy of the old value; `name` must outlive it.
// Order: nested scopes are undone in reverse order.
#pragma once

#include <stdlib.h>

#include <optional>
#include <string>

namespace testsupport {

class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : name_(name) {
    if (const char* old = ::getenv(name)) old_ = old;
    if (value == nullptr)
      ::unsetenv(name);
    else
      ::setenv(name, value, 1);
  }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;
  ~ScopedVariable() {
    if (old_)
      ::setenv(name_, old_->c_str(), 1);
    else
      ::unsetenv(name_);
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

}  // namespace testsupport
