// SPDX-License-Identifier: Apache-2.0

// A file that appears whole or not at all.
//
// It is written under a temporary name in the target directory and renamed when everything is on
// disk. A previous file stays in place until then.
//
// Threading: one thread; discard() may be called from any thread, at any time.
// Ownership: owns the temporary file and removes it unless keep() was called.
// Errors: Failure, "FILE: cause".
// Order: write, then keep.
#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <string>

#include "platform/services/FileDescriptor.h"

namespace tool {

class NewFile {
 public:
  /// `path` must name a regular file or nothing; a symbolic link there is replaced, not followed.
  /// The file is accessible to its owner only (mode 0600).
  explicit NewFile(std::string path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void write(std::span<const std::uint8_t> bytes);
  /// Puts the file in place, after writing everything to disk.
  void keep();
  /// Removes the temporary file unless keep() has finished. From then on keep() fails.
  void discard() noexcept;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  void create();
  [[noreturn]] void fail(int error) const;

  const std::string path_;
  std::string name_;
  platform::FileDescriptor directory_;
  platform::FileDescriptor file_;
  std::mutex mutex_;  // guards temporary_ and its file
  std::string temporary_;
};

}  // namespace tool
