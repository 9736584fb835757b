// SPDX-License-Identifier: Apache-2.0

#include "router/directory/DirectorySession.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "platform/foundation/Format.h"
#include "router/RouterErrors.h"

namespace router {
namespace {

using Clock = StartLine::Clock;
using platform::LogLine;

/// Whether both are the same device in the same state; what a caller may is asked separately.
bool areAlike(const ListedDevice& one, const ListedDevice& other) {
  return one.device == other.device && one.deviceClass == other.deviceClass &&
         one.reason == other.reason && one.ordinaryReports == other.ordinaryReports &&
         one.collections == other.collections;
}

}  // namespace

DirectorySession::DirectorySession(RequestPeer peer, std::shared_ptr<DeviceMonitor> monitor)
    : RequestSession(std::move(peer)), monitor_(std::move(monitor)) {}

void DirectorySession::end() {
  subscription_ = nullptr;
  inquiry_ = nullptr;
  timeIsUp_ = {};
  reply_ = {};
  client_ = nullptr;
}

void DirectorySession::onQueue(std::function<void(DirectorySession&)> work) {
  connection().callOnQueue([weak = weak_from_this(), work = std::move(work)] {
    if (const auto self = weak.lock()) work(*self);
  });
}

void DirectorySession::watchDevicesMatching_excluding_reply(
    const std::shared_ptr<platform::NSArray>& matching,
    const std::shared_ptr<platform::NSArray>& excluding, WatchReply reply) {
  if (const auto error = refusal()) return reply(nullptr, error);
  if (reply_) return reply(nullptr, routerError(IOReturn::Busy, "a watch is beginning already"));
  try {
    filter_ = DeviceFilter(matching, excluding, parts().limits.directoryCriteria);
  } catch (const std::invalid_argument& error) {
    return reply(nullptr, routerError(IOReturn::BadArgument, error.what()));
  }
  reply_ = std::move(reply);
  told_.clear();
  inquiry_ = nullptr;
  if (subscription_ == nullptr) {
    client_ = connection().remoteObjectProxyWithErrorHandler<WLHIDDeviceDirectoryClientProtocol>(
        [](const std::shared_ptr<platform::NSError>&) {});
    subscription_ = monitor_->subscribe([weak = weak_from_this()] {
      if (const auto self = weak.lock())
        self->onQueue([](DirectorySession& session) { session.refresh(); });
    });
  }
  refresh();
}

void DirectorySession::reportDescriptorOfDevice_reply(std::uint64_t registryEntryID,
                                                      DescriptorReply reply) {
  if (const auto error = refusal()) return reply(nullptr, error);
  const auto descriptor = parts().devices->reportDescriptorOf(registryEntryID);
  if (!descriptor)
    return reply(nullptr,
                 routerError(IOReturn::NoDevice,
                             platform::stringWithFormat(
                                 "no device has the registry entry ID 0x%llx", registryEntryID)));
  reply(platform::NSData::dataWithBytes(*descriptor), nullptr);
}

bool DirectorySession::isTold(const ListedDevice& device) const {
  const auto known = told_.find(device.device.registryEntryID);
  return known != told_.end() && areAlike(known->second, device);
}

/// Goes on in take(), at once if nobody has to be asked.
void DirectorySession::refresh() {
  if (inquiry_ != nullptr) {
    isStale_ = true;
    return;
  }
  isStale_ = false;
  const auto all = monitor_->devices();
  auto wanted = std::make_shared<Devices>();
  Devices unknown;
  for (const ListedDevice& each : *all) {
    if (!filter_.admits(each)) continue;
    wanted->push_back(each);
    if (!isTold(each)) unknown.push_back(each);
  }
  current_ = std::move(wanted);
  if (caller() == nullptr || unknown.empty()) return take(unknown);
  ask(std::move(unknown));
}

void DirectorySession::ask(Devices devices) {
  const auto inquiry = std::make_shared<DeviceInquiry>(
      std::move(devices),
      [weak = weak_from_this(), number = ++latestInquiry_](const Devices& answered) {
        const auto self = weak.lock();
        if (self == nullptr) return;
        self->onQueue([answered, number](DirectorySession& session) {
          if (session.inquiry_ == nullptr || session.latestInquiry_ != number) return;
          session.inquiry_ = nullptr;
          session.timeIsUp_ = {};
          session.take(answered);
        });
      });
  inquiry_ = inquiry;
  inquiry->begin(*caller());
  timeIsUp_ = parts().startLine->waitUntil(Clock::now() + parts().limits.controlTimeout,
                                           [weak = std::weak_ptr(inquiry)] {
                                             if (const auto open = weak.lock()) open->finish();
                                           });
}

/// `answered` are those of the current devices that have not been told as they are now.
void DirectorySession::take(const Devices& answered) {
  if (reply_) {
    for (const ListedDevice& each : answered) told_.emplace(each.device.registryEntryID, each);
    reply();
  } else {
    tell(answered);
  }
  if (isStale_) refresh();
}

void DirectorySession::reply() {
  std::vector<std::shared_ptr<platform::NSObject>> list;
  for (const ListedDevice& each : *current_)
    list.push_back(dictionaryOfDevice(told_.at(each.device.registryEntryID)));
  const auto reply = std::exchange(reply_, {});
  reply(platform::NSArray::arrayWithObjects(std::move(list)), nullptr);
}

void DirectorySession::tell(const Devices& answered) {
  std::vector<std::uint64_t> departed;
  for (const auto& [id, known] : told_) {
    const bool isThere = std::any_of(
        current_->begin(), current_->end(),
        [id = id](const ListedDevice& each) { return each.device.registryEntryID == id; });
    if (!isThere) departed.push_back(id);
  }
  if ((departed.empty() && answered.empty()) || !isReading()) return;
  for (const std::uint64_t id : departed) {
    told_.erase(id);
    client_->deviceDeparted(id);
  }
  for (const ListedDevice& each : answered) {
    const bool isNew = told_.insert_or_assign(each.device.registryEntryID, each).second;
    isNew ? client_->deviceArrived(dictionaryOfDevice(each))
          : client_->deviceChanged(dictionaryOfDevice(each));
  }
}

/// If it does not, its connection is closed: a message that is left out later would be a gap.
bool DirectorySession::isReading() {
  if (client_ == nullptr) return false;
  if (connection().unsentBytes() <= parts().limits.directoryBacklog) return true;
  parts().log(user(), LogLine::of<row::watcherTooSlow>(process(), user()));
  client_ = nullptr;
  connection().invalidate();
  return false;
}

}  // namespace router
