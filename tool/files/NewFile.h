// A file that appears whole or not at all.
//
// It is written under a temporary name in the directory where it is to stand, and takes its place
// when everything is on the disk. What stood there before stays until then.
//
// Threading: one thread; discard() may be called from any thread at any time.
// Ownership: owns the temporary file, which goes with the object unless keep() was called.
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
  /// `path` must be the place of a regular file or of none; a symbolic link there is replaced, not
  /// followed. For its owner alone (mode 0600).
  explicit NewFile(std::string path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void write(std::span<const std::uint8_t> bytes);
  /// Puts the file in its place, with everything written to the disk first.
  void keep();
  /// Removes the temporary file, unless keep() has been done. keep() fails from then on.
  void discard() noexcept;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  void create();
  [[noreturn]] void fail(int error) const;

  const std::string path_;
  std::string name_;
  platform::FileDescriptor directory_;
  platform::FileDescriptor file_;
  std::mutex mutex_;  // for what is under temporary_
  std::string temporary_;
};

}  // namespace tool
