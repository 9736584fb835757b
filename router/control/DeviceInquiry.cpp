// SPDX-License-Identifier: Apache-2.0

#include "router/control/DeviceInquiry.h"

#include <string>
#include <utility>

namespace router {
namespace {

constexpr const char* kAdministrator = "an administrator has to agree each time";

std::string listOf(const ReportIDs& reports) {
  std::string list;
  for (std::size_t id = 0; id < reports.size(); ++id) {
    if (reports[id]) list += (list.empty() ? "" : ", ") + std::to_string(id);
  }
  return list;
}

void explain(ListedDevice& listed, const RoutingAnswer& answer) {
  using Permission = DevicePermission;
  // Of an ordinary device only the reports that it declares are permitted, and that is all of it.
  const bool isWhole =
      answer.reports == allReports() || listed.deviceClass == DeviceClass::Ordinary;
  if (answer.isAllowed && isWhole) {
    listed.permission = Permission::Yes;
    listed.explanation = "you may";
  } else if (answer.isAllowed) {
    listed.permission = Permission::Partly;
    listed.explanation =
        "you may, its reports " + listOf(answer.reports) + "; for the others " + kAdministrator;
  } else if (answer.needsPerson) {
    listed.permission = Permission::Administrator;
    listed.explanation = kAdministrator;
  } else {
    listed.permission = Permission::No;
    listed.explanation = answer.reason;
  }
}

ListedDevice unanswered(const RoutingAuthority& authority, DeviceDescription device) {
  ListedDevice listed{std::move(device)};
  listed.explanation = "unknown, because there was no answer in time";
  if (auto known = authority.classOf(listed.device)) {
    listed.deviceClass = known->deviceClass;
    listed.reason = std::move(known->reason);
    listed.ordinaryReports = std::move(known->ordinaryReports);
  }
  return listed;
}

ListedDevice permitted(DeviceDescription device) {
  ListedDevice listed{std::move(device)};
  listed.permission = DevicePermission::Yes;
  listed.explanation = "you may: it is your own root's";
  return listed;
}

}  // namespace

std::vector<ListedDevice> classified(const RoutingAuthority* authority,
                                     std::vector<DeviceDescription> devices) {
  std::vector<ListedDevice> listed;
  for (DeviceDescription& each : devices)
    listed.push_back(authority == nullptr ? permitted(std::move(each))
                                          : unanswered(*authority, std::move(each)));
  return listed;
}

DeviceInquiry::DeviceInquiry(std::vector<ListedDevice> devices, Done done)
    : done_(std::move(done)), devices_(std::move(devices)) {}

void DeviceInquiry::begin(RoutingCaller& caller) {
  std::vector<RoutingRequest> requests;
  {
    const std::lock_guard lock(mutex_);
    for (const ListedDevice& each : devices_)
      requests.push_back({each.device, DeviceMode::Shared, {}, true});
    open_ += requests.size();
  }
  for (std::size_t i = 0; i < requests.size(); ++i) {
    auto permit = caller.ask(
        requests[i],
        [weak = weak_from_this(), i](const RoutingAnswer& answer) {
          if (const auto self = weak.lock()) self->take(i, answer);
        },
        [](const std::string& /*reason*/) {});
    const std::lock_guard lock(mutex_);
    if (!isDone_) permits_.push_back(std::move(permit));
  }
  countDown();
}

void DeviceInquiry::take(std::size_t index, const RoutingAnswer& answer) {
  {
    const std::lock_guard lock(mutex_);
    if (isDone_) return;
    explain(devices_[index], answer);
  }
  countDown();
}

void DeviceInquiry::countDown() {
  {
    const std::lock_guard lock(mutex_);
    if (isDone_ || --open_ > 0) return;
  }
  finish();
}

void DeviceInquiry::finish() {
  std::vector<ListedDevice> devices;
  std::vector<std::unique_ptr<RoutingPermit>> permits;  // dropped without the lock
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(isDone_, true)) return;
    devices.swap(devices_);
    permits.swap(permits_);
  }
  permits.clear();
  done_(devices);
}

}  // namespace router
