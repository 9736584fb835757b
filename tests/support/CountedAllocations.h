// SPDX-License-Identifier: Apache-2.0

// Counts what each thread allocates with new. For a program of its own, among whose sources is
// CountedAllocations.cpp, which replaces the operators of the whole program.
#pragma once

#include <cstddef>

namespace testsupport {

/// By the calling thread, since it began.
[[nodiscard]] std::size_t allocationsOfThisThread();

}  // namespace testsupport
