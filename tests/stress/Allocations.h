// operator new and delete of a stress program: they count, and fail on demand.
//
// Link Allocations.cpp into a program and every allocation of it goes through here.
//
// Threading: any thread.
// Errors: std::bad_alloc where a failure is due.
// Order: allocations are numbered in the order in which they begin.
#pragma once

#include <cstdint>

namespace stress {

/// Allocations by operator new that were not freed yet.
[[nodiscard]] std::uint64_t liveAllocations();

/// From here on the `first`-th allocation (1: the next) and each `every`-th behind it fails; with
/// `every` 0 that one alone. Numbers are counted over all threads of the process.
void failAllocations(std::uint64_t first, std::uint64_t every);
/// Ends that. How many failed.
std::uint64_t stopFailingAllocations();
/// Allocations since failAllocations.
[[nodiscard]] std::uint64_t allocationsSince();

/// While one lives, allocations of its thread neither fail nor count: for what the program itself
/// does in the midst of others' work.
class Unharmed {
 public:
  Unharmed();
  ~Unharmed();
  Unharmed(const Unharmed&) = delete;
  Unharmed& operator=(const Unharmed&) = delete;
};

}  // namespace stress
