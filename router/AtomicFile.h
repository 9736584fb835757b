// SPDX-License-Identifier: Apache-2.0

// Files that are written atomically: a reader sees the old content or the new one, never a part.
//
// Files are named relative to an open directory, and no symbolic link is followed.
//
// Threading: any thread, one thread at a time per draft; of two concurrent writers one wins.
// Ownership: descriptors belong to the caller.
// Errors: std::system_error that names the file.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "platform/services/FileDescriptor.h"

namespace router {

/// A file being written. It has a hidden temporary name, which is removed with this object, and is
/// on disk before it gets its final name.
class FileDraft {
 public:
  /// The hidden name is derived from `name`. The file gets `mode`, less the umask.
  FileDraft(int directory, std::string name, mode_t mode = 0644);
  ~FileDraft();
  FileDraft(const FileDraft&) = delete;
  FileDraft& operator=(const FileDraft&) = delete;

  /// Open for reading too; append() writes at the end wherever the offset is.
  [[nodiscard]] int descriptor() const { return file_.get(); }
  void append(std::span<const std::uint8_t> content);
  /// Replaces whatever has that name, including a symbolic link.
  void replace(const std::string& name);
  /// False, with nothing changed, if the name is taken, even if only since a moment ago.
  [[nodiscard]] bool take(const std::string& name);
  /// Keeps the file open after this object is gone.
  [[nodiscard]] platform::FileDescriptor release() { return std::move(file_); }

 private:
  void sync() const;

  const platform::FileDescriptor directory_;
  const std::string name_;
  const std::string hidden_;
  platform::FileDescriptor file_;
};

/// The file gets mode 0644 (less the umask); a symbolic link of that name is replaced.
void writeFileAtomically(int directory, const std::string& name,
                         std::span<const std::uint8_t> content);
/// The same, unless the name is taken: then returns false and changes nothing.
[[nodiscard]] bool createFileAtomically(int directory, const std::string& name,
                                        std::span<const std::uint8_t> content);

/// Like writeFileAtomically(), but the file is locked before it gets its name. The lock lasts as
/// long as the returned descriptor is open, so never longer than the process, however that ends.
[[nodiscard]] platform::FileDescriptor writeLockedFile(int directory, const std::string& name,
                                                       std::span<const std::uint8_t> content);
/// Whether the writer of the open file still holds its lock. Only those who may write it can.
[[nodiscard]] bool isLocked(int file);

/// Removes temporary files that killed writers of the file left next to it. Never fails.
void removeAbandonedWrites(int directory, const std::string& name);

}  // namespace router
