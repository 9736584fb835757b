// The order in which this process brings files to disk and puts them in place, and writes and reads
// that move less than they are asked to: FileOperations.cpp stands before the system's calls in the
// program that it is linked into.
//
// Threading: one thread, as the installer has.
// Order: as called.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace fileoperations {

/// Begins to write down, from nothing.
void record();
/// Ends that. "write NAME" (once for many in a row), "mode NAME", "sync NAME", "rename FROM TO"; a
/// NAME is the last of its path.
[[nodiscard]] std::vector<std::string> recorded();

/// From here on, each write moves the next of these many bytes at most, or fails with the error
/// number of which this is the negative. Writes after the last are ordinary again. A child process
/// has its own copy of what is left.
void limitWrites(std::vector<ssize_t> limits);
/// The same for reads.
void limitReads(std::vector<ssize_t> limits);
/// The process ends with this status once it has written something.
void exitAfterWriting(int status);

}  // namespace fileoperations
