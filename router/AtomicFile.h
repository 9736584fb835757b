// Replacing a small file as a whole: readers see the old content or the new, never a part.
//
// Files are reached by name in an open directory, and no link is followed.
//
// Threading: any thread; of two writers at once one wins. Ownership: descriptors belong to the
// caller. Order: none.
// Errors: std::system_error that names the file.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/services/FileDescriptor.h"

namespace router {

/// The file gets mode 0644 (less the umask); a symbolic link in its place is replaced.
void writeFileAtomically(int directory, const std::string& name,
                         std::span<const std::uint8_t> content);

/// The same, and from the moment that it has its name the file is held for as long as what is
/// returned stays open: not beyond the life of the process, therefore, however that ends.
[[nodiscard]] platform::FileDescriptor writeHeldFile(int directory, const std::string& name,
                                                     std::span<const std::uint8_t> content);
/// Whether whoever wrote the open file still holds it. Nobody but who may write it could.
[[nodiscard]] bool isHeld(int file);

/// Removes what writers of the file that were killed on the way have left beside it. Never fails.
void removeAbandonedWrites(int directory, const std::string& name);

}  // namespace router
