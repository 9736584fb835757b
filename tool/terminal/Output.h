// SPDX-License-Identifier: Apache-2.0

// Whole lines to a descriptor.
//
// Threading: any thread; the text of one call stays together. A write blocks until the reader
//   reads, holding the output's own lock, under which nothing else is called.
// Ownership: the descriptor stays the caller's.
// Errors: the first failure is kept and ends the output; later writes do nothing and return false.
// Order: texts of one thread are written in order.
#pragma once

#include <mutex>
#include <string_view>

namespace tool {

class Output {
 public:
  explicit Output(int descriptor) : descriptor_(descriptor) {}

  /// Writes all of `text`, despite interruptions and non-blocking descriptors. False once the
  /// output has failed.
  bool write(std::string_view text);
  /// Waits until no text is being written.
  void finish() const;
  /// The errno of the first failure (EPIPE: the reader is gone), or 0.
  [[nodiscard]] int failure() const;

 private:
  const int descriptor_;
  mutable std::mutex mutex_;
  int failure_ = 0;
};

}  // namespace tool
