// The order in which this process brings files to disk and puts them in place: FileOperations.cpp
// stands before the system's calls in the program that it is linked into.
//
// Threading: one thread, as the installer has. Ownership: none. Errors: none. Order: as called.
#pragma once

#include <string>
#include <vector>

namespace fileoperations {

/// Begins to write down, from nothing.
void record();
/// Ends that. "write NAME" (once for many in a row), "mode NAME", "sync NAME", "rename FROM TO"; a
/// NAME is the last of its path.
[[nodiscard]] std::vector<std::string> recorded();

}  // namespace fileoperations
