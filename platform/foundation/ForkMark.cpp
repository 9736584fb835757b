// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/ForkMark.h"

#include <pthread.h>

#include <new>

namespace platform {

std::atomic<std::uint64_t> ForkMark::forksSoFar{0};

ForkMark::ForkMark() : forks_(forksSoFar.load()) {
  static const int registered = ::pthread_atfork(
      nullptr, nullptr, [] { forksSoFar.fetch_add(1, std::memory_order_relaxed); });
  if (registered != 0) throw std::bad_alloc();
}

}  // namespace platform
