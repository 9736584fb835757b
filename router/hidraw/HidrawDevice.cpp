// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/HidrawDevice.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <utility>

#include "router/RouterLimits.h"

namespace router {

namespace {

/// One byte more than the kernel's largest report: a read that fills it was cut off.
constexpr std::size_t kReadBytes = RouterLimits::kHidrawReportBytes + 1;

}  // namespace

HidrawDevice::HidrawDevice(HidrawSystem system, SystemDevice hid, platform::FileDescriptor node,
                           std::vector<std::uint8_t> reportDescriptor)
    : system_(std::move(system)),
      hid_(std::move(hid)),
      node_(std::move(node)),
      reportDescriptor_(std::move(reportDescriptor)),
      buffer_(RouterLimits::kReadAheadBytes) {
  lengths_.reserve(RouterLimits::kReadAheadReports);
}

OpenDevice::Next HidrawDevice::next(const StopSignal& stop,
                                    std::span<const std::uint8_t>* returnReport) {
  while (!stop.isRaised()) {
    if (next_ < lengths_.size()) {
      *returnReport = takeReport();
      return Next::Report;
    }
    if (error_ != 0) return end();
    const int error = readAhead();
    if (error != EAGAIN)
      error_ = error;
    else if (lengths_.empty())
      wait(stop);
  }
  return Next::Stopped;
}

std::span<const std::uint8_t> HidrawDevice::takeReport() {
  const std::size_t length = lengths_[next_++];
  const auto report = std::span<const std::uint8_t>(buffer_).subspan(begin_, length);
  begin_ += length;
  return report;
}

int HidrawDevice::readAhead() {
  lengths_.clear();
  next_ = 0;
  begin_ = 0;
  std::size_t end = 0;
  while (lengths_.size() < RouterLimits::kReadAheadReports && buffer_.size() - end >= kReadBytes) {
    const ssize_t count =
        system_.nodes->read(node_.get(), std::span(buffer_).subspan(end, kReadBytes));
    if (count == -EINTR) continue;
    if (count < 0) return static_cast<int>(-count);
    if (count == 0) return ENODATA;  // the kernel never does this; waiting for more would not end
    const auto length = static_cast<std::size_t>(count);
    if (length == kReadBytes) return EMSGSIZE;
    lengths_.push_back(length);
    end += length;
  }
  return 0;
}

void HidrawDevice::wait(const StopSignal& stop) {
  std::array<pollfd, 2> polls{pollfd{stop.descriptor(), POLLIN, 0}, pollfd{node_.get(), POLLIN, 0}};
  ::poll(polls.data(), polls.size(), -1);
  // While a removed device still has reports, it can be read.
  if (polls[1].revents != 0 && (polls[1].revents & POLLIN) == 0) error_ = ENODEV;
}

OpenDevice::Next HidrawDevice::end() const {
  pollfd poll{node_.get(), POLLIN, 0};
  const bool isHungUp =
      ::poll(&poll, 1, 0) == 1 && (poll.revents & static_cast<short>(POLLERR | POLLHUP)) != 0;
  if (isHungUp && (error_ == EIO || error_ == ENODEV)) return Next::Gone;
  throw DeviceError(std::string("it cannot be read: ") + std::generic_category().message(error_),
                    {error_, std::generic_category()});
}

void HidrawDevice::takeExclusively() {
  exclusive_ = std::make_unique<ExclusiveInput>(system_, hid_);
}

void HidrawDevice::releaseExclusive() {
  exclusive_.reset();
}

}  // namespace router
