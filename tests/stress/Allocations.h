// SPDX-License-Identifier: Apache-2.0

// operator new and delete of a stress program, which count and fail on demand.
//
// Link Allocations.cpp into a program and all of its allocations go through here.
//
// Threading: any thread.
// Errors: std::bad_alloc if a failure is due.
// Order: allocations are numbered in the order in which they begin.
#pragma once

#include <cstdint>

namespace stress {

/// Allocations by operator new that have not been freed.
[[nodiscard]] std::uint64_t liveAllocations();

/// From now on the `first`-th allocation (1: the next) and each `every`-th after it fails; with
/// `every` 0 only that one. All threads of the process count.
void failAllocations(std::uint64_t first, std::uint64_t every);
/// Ends that, and returns how many failed.
std::uint64_t stopFailingAllocations();
/// Allocations since failAllocations.
[[nodiscard]] std::uint64_t allocationsSince();

/// During its life, allocations of its thread neither fail nor count: for what the program itself
/// does between the work under test.
class Unharmed {
 public:
  Unharmed();
  ~Unharmed();
  Unharmed(const Unharmed&) = delete;
  Unharmed& operator=(const Unharmed&) = delete;
};

}  // namespace stress
