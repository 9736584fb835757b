// SPDX-License-Identifier: Apache-2.0

#include "tool/terminal/Output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace tool {

namespace {

/// Writes part of the text and returns how much, waiting if the descriptor is non-blocking; -1 with
/// errno set on failure.
ssize_t writeSome(int descriptor, std::string_view text) {
  while (true) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written >= 0) return written;
    if (errno == EAGAIN) {
      pollfd writable{descriptor, POLLOUT, 0};
      ::poll(&writable, 1, -1);
    } else if (errno != EINTR) {
      return -1;
    }
  }
}

}  // namespace

bool Output::write(std::string_view text) {
  const std::lock_guard lock(mutex_);
  while (failure_ == 0 && !text.empty()) {
    const ssize_t written = writeSome(descriptor_, text);
    if (written < 0) {
      failure_ = errno;
    } else {
      text.remove_prefix(static_cast<std::size_t>(written));
    }
  }
  return failure_ == 0;
}

void Output::finish() const {
  const std::lock_guard lock(mutex_);
}

int Output::failure() const {
  const std::lock_guard lock(mutex_);
  return failure_;
}

}  // namespace tool
