// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/HidrawDevice.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <utility>

namespace router {

HidrawDevice::HidrawDevice(HidrawSystem system, SystemDevice hid, platform::FileDescriptor node,
                           std::vector<std::uint8_t> reportDescriptor)
    : system_(std::move(system)),
      hid_(std::move(hid)),
      node_(std::move(node)),
      reportDescriptor_(std::move(reportDescriptor)) {}

OpenDevice::Next HidrawDevice::next(const StopSignal& stop,
                                    std::span<const std::uint8_t>* returnReport) {
  if (ahead_ == nullptr) ahead_ = std::make_unique<ReadAhead>(system_.nodes, node_.get());
  while (!stop.isRaised()) {
    if (const auto report = reports_.take()) {
      arrival_ = report->arrival;
      *returnReport = report->bytes;
      return Next::Report;
    }
    int error = 0;
    if (ahead_->take(&reports_, &error)) continue;
    if (error != 0) return end(error);
    wait(stop);
  }
  return Next::Stopped;
}

void HidrawDevice::wait(const StopSignal& stop) const {
  std::array<pollfd, 2> polls{pollfd{stop.descriptor(), POLLIN, 0},
                              pollfd{ahead_->descriptor(), POLLIN, 0}};
  ::poll(polls.data(), polls.size(), -1);
}

std::uint64_t HidrawDevice::lost() const {
  return ahead_ == nullptr ? 0 : ahead_->lost();
}

OpenDevice::Next HidrawDevice::end(int error) const {
  pollfd poll{node_.get(), POLLIN, 0};
  const bool isHungUp =
      ::poll(&poll, 1, 0) == 1 && (poll.revents & static_cast<short>(POLLERR | POLLHUP)) != 0;
  if (isHungUp && (error == EIO || error == ENODEV)) return Next::Gone;
  throw DeviceError(std::string("it cannot be read: ") + std::generic_category().message(error),
                    {error, std::generic_category()});
}

void HidrawDevice::takeExclusively() {
  exclusive_ = std::make_unique<ExclusiveInput>(system_, hid_);
}

void HidrawDevice::releaseExclusive() {
  exclusive_.reset();
}

}  // namespace router
