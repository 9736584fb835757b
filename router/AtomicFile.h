// Replacing a small file as a whole: readers see the old content or the new, never a part.
//
// Threading: any thread; of two writers at once one wins. Ownership, Order: none.
// Errors: std::system_error that names the file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

namespace router {

/// Makes missing directories. The file gets mode 0644 (less the umask); a symbolic link in its
/// place is replaced, not followed.
void writeFileAtomically(const std::filesystem::path& file, std::span<const std::uint8_t> content);

/// Removes what writers of `file` that were killed on the way have left beside it. Never fails.
void removeAbandonedWrites(const std::filesystem::path& file);

}  // namespace router
