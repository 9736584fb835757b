// Two processors for the two ends of a latency measurement. Where the scheduler is free it puts
// both ends on one processor in some runs and on two in others, and a wake-up then takes a tenth of
// the time: what would be compared is its mood.
//
// Threading: speaks of the calling thread, and of the threads and processes that it starts
//   afterwards.
// Ownership: the destructor gives the thread its former processors back.
// Errors: with one processor to be had, nothing is pinned.
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
