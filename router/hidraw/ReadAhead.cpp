// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/ReadAhead.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace router {

namespace {

/// One byte more than the kernel's largest report: a read that fills it was cut off.
constexpr std::size_t kReadBytes = RouterLimits::kHidrawReportBytes + 1;

int newEvent() {
  const int event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  return event;
}

}  // namespace

ReadAhead::ReadAhead(std::shared_ptr<const DeviceNodes> nodes, int node)
    : nodes_(std::move(nodes)),
      node_(node),
      news_(newEvent()),
      report_(kReadBytes),
      thread_([this] { run(); }) {}

ReadAhead::~ReadAhead() {
  stop_.raise();
  thread_.join();
}

bool ReadAhead::take(ReportBuffer* returnReports, int* returnError) {
  // Before the reports: what comes between the two is told again.
  eventfd_t count = 0;
  ::eventfd_read(news_.get(), &count);
  returnReports->clear();
  const std::lock_guard lock(mutex_);
  *returnError = error_;
  if (read_.isEmpty()) return false;
  std::swap(read_, *returnReports);
  return true;
}

void ReadAhead::run() {
  int error = 0;
  while (!stop_.isRaised() && error == 0) {
    error = readWaiting();
    if (error == EAGAIN) error = wait();
  }
  {
    const std::lock_guard lock(mutex_);
    error_ = error;
  }
  tell();
}

int ReadAhead::readWaiting() {
  while (!stop_.isRaised()) {
    const ssize_t count = nodes_->read(node_, report_);
    if (count == -EINTR) continue;
    if (count < 0) return static_cast<int>(-count);
    if (count == 0) return ENODATA;  // the kernel never does this; waiting for more would not end
    const auto length = static_cast<std::size_t>(count);
    if (length == kReadBytes) return EMSGSIZE;
    keep(std::span(report_).first(length));
  }
  return 0;
}

void ReadAhead::keep(std::span<const std::uint8_t> report) {
  const auto now = std::chrono::steady_clock::now();
  bool isFirst = false;
  {
    const std::lock_guard lock(mutex_);
    isFirst = read_.isEmpty();
    if (!read_.put(now, report)) lost_.fetch_add(1, std::memory_order_relaxed);
  }
  if (isFirst) tell();
}

int ReadAhead::wait() const {
  std::array<pollfd, 2> polls{pollfd{stop_.descriptor(), POLLIN, 0}, pollfd{node_, POLLIN, 0}};
  ::poll(polls.data(), polls.size(), -1);
  // While a removed device still has reports, it can be read.
  const bool isOver = polls[1].revents != 0 && (polls[1].revents & POLLIN) == 0;
  return isOver ? ENODEV : 0;
}

void ReadAhead::tell() const {
  ::eventfd_write(news_.get(), 1);
}

}  // namespace router
