// SPDX-License-Identifier: Apache-2.0

// The real connection layer under observation: every start request, every handler and every
// connection that a client holds is counted, and these promises are checked:
//
//   - a start request that was sent is settled once: by its reply or by its error handler
//   - a client holds at most one connection that it has not invalidated
//   - the invalidation handler is the last thing that a connection's queue calls, and runs once
//
// Threading: any thread.
// Ownership: installed by watchConnections(), for the rest of the process.
// Errors: a broken promise is a finding.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "tests/stress/Stress.h"

namespace stress {

struct ConnectionCounts {
  std::atomic<std::uint64_t> made{0};
  std::atomic<std::uint64_t> startsSent{0};
  std::atomic<std::uint64_t> startsAnswered{0};
  std::atomic<std::uint64_t> startsFailed{0};
  std::atomic<std::uint64_t> interruptions{0};
  std::atomic<std::uint64_t> invalidations{0};

  [[nodiscard]] std::uint64_t startsSettled() const { return startsAnswered + startsFailed; }
};

/// Both arguments must live for the rest of the process.
void watchConnections(ConnectionCounts& counts, Findings& findings);

/// For a delegate: whether the calling queue has run its connection's invalidation handler already.
[[nodiscard]] bool isAfterInvalidation();

}  // namespace stress
