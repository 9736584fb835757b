// SPDX-License-Identifier: Apache-2.0

// Two processors for the two ends of a measurement. Left alone, the scheduler puts both
// ends on one processor in some runs and on two in others, and in the first case a wake-up takes a
// tenth of the time: the comparison would measure its choice.
//
// Threading: pins the calling thread, and the threads and processes that it starts afterwards.
// Ownership: the destructor restores the thread's former processors.
// Errors: if only one processor is available, nothing is pinned.
#pragma once

#include <sched.h>

namespace bench {

class TwoProcessors {
 public:
  TwoProcessors() { ::sched_getaffinity(0, sizeof former_, &former_); }
  TwoProcessors(const TwoProcessors&) = delete;
  TwoProcessors& operator=(const TwoProcessors&) = delete;
  ~TwoProcessors() { ::sched_setaffinity(0, sizeof former_, &former_); }

  void useFirst() const { use(0); }
  void useSecond() const { use(1); }

 private:
  void use(int position) const {
    if (CPU_COUNT(&former_) < 2) return;
    int processor = 0;
    for (int seen = -1; processor < CPU_SETSIZE; ++processor) {
      if (CPU_ISSET(processor, &former_) && ++seen == position) break;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    ::sched_setaffinity(0, sizeof one, &one);
  }

  cpu_set_t former_{};
};

}  // namespace bench
