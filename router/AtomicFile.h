// Files that come about as a whole: readers see the old content or the new, never a part.
//
// Files are reached by name in an open directory, and no link is followed.
//
// Threading: any thread, a draft one at a time; of two writers at once one wins.
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

/// A file on its way. It grows under a hidden name, which goes with this object, and is on the disk
/// when it gets its own.
class FileDraft {
 public:
  /// The hidden name is made of `name`. The file gets `mode`, less the umask.
  FileDraft(int directory, std::string name, mode_t mode = 0644);
  ~FileDraft();
  FileDraft(const FileDraft&) = delete;
  FileDraft& operator=(const FileDraft&) = delete;

  /// For reading too, beside which append() goes on at the file's end.
  [[nodiscard]] int descriptor() const { return file_.get(); }
  void append(std::span<const std::uint8_t> content);
  /// What has that name is replaced; a symbolic link, too.
  void replace(const std::string& name);
  /// False, with nothing changed, where something has that name: also something that got it just
  /// now.
  [[nodiscard]] bool take(const std::string& name);
  /// Keeps the file open beyond this object.
  [[nodiscard]] platform::FileDescriptor release() { return std::move(file_); }

 private:
  void sync() const;

  const platform::FileDescriptor directory_;
  const std::string name_;
  const std::string hidden_;
  platform::FileDescriptor file_;
};

/// The file gets mode 0644 (less the umask); a symbolic link in its place is replaced.
void writeFileAtomically(int directory, const std::string& name,
                         std::span<const std::uint8_t> content);
/// The same, unless something has that name: then false, with nothing changed.
[[nodiscard]] bool createFileAtomically(int directory, const std::string& name,
                                        std::span<const std::uint8_t> content);

/// As the first, and from the moment that it has its name the file is held for as long as what is
/// returned stays open: not beyond the life of the process, therefore, however that ends.
[[nodiscard]] platform::FileDescriptor writeHeldFile(int directory, const std::string& name,
                                                     std::span<const std::uint8_t> content);
/// Whether whoever wrote the open file still holds it. Nobody but who may write it could.
[[nodiscard]] bool isHeld(int file);

/// Removes what writers of the file that were killed on the way have left beside it. Never fails.
void removeAbandonedWrites(int directory, const std::string& name);

}  // namespace router
