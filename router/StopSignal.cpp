// SPDX-License-Identifier: Apache-2.0

#include "router/StopSignal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace router {

StopSignal::StopSignal() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

StopSignal::~StopSignal() {
  ::close(descriptor_);
}

void StopSignal::raise() {
  raised_.store(true, std::memory_order_release);
  const std::uint64_t one = 1;
  // Fails only after 2^64 calls.
  [[maybe_unused]] const ssize_t written = ::write(descriptor_, &one, sizeof one);
}

bool StopSignal::waitUntil(std::chrono::steady_clock::time_point deadline) const {
  using std::chrono::nanoseconds;
  constexpr nanoseconds kLongestWait = std::chrono::hours(1);
  while (!isRaised()) {
    const nanoseconds left = deadline - std::chrono::steady_clock::now();
    if (left <= nanoseconds::zero()) return false;
    const nanoseconds wait = std::min(left, kLongestWait);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(wait);
    const timespec timeout{static_cast<time_t>(seconds.count()),
                           static_cast<long>((wait - seconds).count())};
    pollfd poll{descriptor_, POLLIN, 0};
    ::ppoll(&poll, 1, &timeout, nullptr);
  }
  return true;
}

}  // namespace router
