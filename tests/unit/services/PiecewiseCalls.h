// SPDX-License-Identifier: Apache-2.0

// Makes sends and reads transfer less than requested: PiecewiseCalls.cpp replaces the system's
// calls in the program that it is linked into.
//
// Threading: one thread at a time.
#pragma once

#include <sys/types.h>

#include <vector>

namespace piecewise {

/// From now on, each sendmsg sends at most the next of these numbers of bytes of its single buffer.
/// After the last, calls are unlimited again.
void limitSends(std::vector<std::size_t> limits);
/// The same for pread; a limit of 0 is the end of the file.
void limitReads(std::vector<std::size_t> limits);

}  // namespace piecewise
