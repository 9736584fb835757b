// Sends and reads that move less than they are asked to: PiecewiseCalls.cpp stands before the
// system's calls in the program that it is linked into.
//
// Threading: one thread at a time.
// Order: as called.
#pragma once

#include <sys/types.h>

#include <vector>

namespace piecewise {

/// From here on, each sendmsg moves the next of these many bytes of its one piece at most. Those
/// after the last are ordinary again.
void limitSends(std::vector<std::size_t> limits);
/// The same for pread; a limit of 0 is the end of the file.
void limitReads(std::vector<std::size_t> limits);

}  // namespace piecewise
