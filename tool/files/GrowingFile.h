// SPDX-License-Identifier: Apache-2.0

// A new text file that is written line by line over a long time, and of use also if its writer is
// stopped halfway.
//
// Threading: one thread; others may write whole lines to the descriptor meanwhile.
// Ownership: owns the descriptor; the file stays, unless it is removed.
// Errors: Failure, "FILE: cause".
// Order: finish() or remove() last.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/services/FileDescriptor.h"

namespace tool {

class GrowingFile {
 public:
  /// A file for its owner only (mode 0600). An existing one is never overwritten.
  explicit GrowingFile(std::string path);

  /// Appends at the end, whoever else does.
  [[nodiscard]] int descriptor() const { return file_.get(); }
  /// What cannot be written whole is cut off after its last whole line.
  void write(std::string_view text);
  /// Removes what follows the last whole line (on a full disk, the beginning of another) and waits
  /// until the rest is on disk. Returns the size.
  std::uint64_t finish();
  void remove() noexcept;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  [[noreturn]] void fail(int error) const;
  [[nodiscard]] std::uint64_t size() const;
  [[nodiscard]] std::uint64_t endOfLastLine() const;

  const std::string path_;
  platform::FileDescriptor file_;
};

}  // namespace tool
