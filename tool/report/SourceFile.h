// SPDX-License-Identifier: Apache-2.0

// A file that goes into a report, read piece by piece.
//
// Threading: one thread.
// Ownership: the bytes of a piece belong to the file, until the next one is read.
// Errors: in `problem`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/services/FileDescriptor.h"

namespace tool {

inline constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

class SourceFile {
 public:
  /// `problem` is set if it cannot be read, or is no regular file.
  SourceFile(const std::string& path, std::string& problem);
  explicit SourceFile(platform::FileDescriptor file);

  /// Continues with the last `bytes` of the file, or with all of it if it is shorter.
  void seekToLast(std::size_t bytes);
  /// The next piece; empty at the end or if reading fails.
  [[nodiscard]] std::span<const std::uint8_t> next(std::string& problem);

 private:
  platform::FileDescriptor file_;
  std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(kPieceBytes);
};

}  // namespace tool
