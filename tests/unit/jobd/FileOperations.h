// SPDX-License-Identifier: Apache-2.0

// Records the order in which this process syncs and renames files, and makes its reads and writes
// partial. FileOperations.cpp overrides the system calls of the program that it is linked into.
//
// Threading: one thread.
// Order: that of the calls.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace fileoperations {

/// Starts a new record.
void record();
/// Ends it and returns the calls: "write NAME" (once for several in a row), "mode NAME", "sync
/// NAME", "rename FROM TO". A NAME is the last part of a path.
[[nodiscard]] std::vector<std::string> recorded();

/// From now on, each write moves at most the next number of bytes, or fails if that number is a
/// negative error number. When the numbers are used up, writes are normal again. A child process
/// has its own copy of the rest.
void limitWrites(std::vector<ssize_t> limits);
/// The same for reads.
void limitReads(std::vector<ssize_t> limits);
/// Makes the process exit with this status after its next write.
void exitAfterWriting(int status);

enum class Dies { Process, Group };

/// Kills this process with SIGKILL, or its whole process group, before or after the `count`th
/// operation that changes the file system: the making of a file or directory, a write, a change of
/// mode, a sync, a rename or a removal. Those of processes that it forks count too, and one of them
/// may be the process that dies.
void dieAt(int count, bool isAfter, Dies who = Dies::Process);
/// Whether that has happened, in whichever of the processes.
[[nodiscard]] bool hasDied();

}  // namespace fileoperations
