// SPDX-License-Identifier: Apache-2.0

#include "tests/unit/services/PiecewiseCalls.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace {

std::vector<std::size_t> sendLimits;
std::vector<std::size_t> readLimits;

std::size_t allowed(std::vector<std::size_t>& limits, std::size_t size) {
  if (limits.empty()) return size;
  const std::size_t limit = limits.front();
  limits.erase(limits.begin());
  return std::min(limit, size);
}

}  // namespace

namespace piecewise {

void limitSends(std::vector<std::size_t> limits) {
  sendLimits = std::move(limits);
}

void limitReads(std::vector<std::size_t> limits) {
  readLimits = std::move(limits);
}

}  // namespace piecewise

// The linker prefers these to the C library's.
extern "C" {

ssize_t sendmsg(int socket, const msghdr* message, int flags) {
  iovec piece = *message->msg_iov;
  piece.iov_len = allowed(sendLimits, piece.iov_len);
  msghdr less = *message;
  less.msg_iov = &piece;
  return ::syscall(SYS_sendmsg, socket, &less, flags);
}

ssize_t pread(int descriptor, void* bytes, size_t size, off_t offset) {
  return ::syscall(SYS_pread64, descriptor, bytes, allowed(readLimits, size), offset);
}

}  // extern "C"
