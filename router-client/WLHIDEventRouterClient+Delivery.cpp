// SPDX-License-Identifier: Apache-2.0

// Delivers the router's messages to the delegate, or to the log if there is no delegate for them.
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "router-client/ClientLog.h"
#include "router-client/WLHIDEventRouterClient+Implementation.h"

using platform::KQHIDDeviceElementValue;
using platform::NSArray;
using platform::NSData;
using platform::NSObject;
using Implementation = WLHIDEventRouterClient::Implementation;

void Implementation::receivedData_forReportID(const std::shared_ptr<NSData>& data,
                                              std::uint32_t reportID) {
  if (const auto delegate = this->delegate()) {
    delegate->hidEventRouterClient_receivedReportData_reportID(client_.shared_from_this(), data,
                                                               reportID);
  } else {
    logReport(data, reportID);
  }
}

void Implementation::receivedElementValues(const std::shared_ptr<NSArray>& elementValues) {
  if (const auto delegate = this->delegate()) {
    delegate->hidEventRouterClient_receivedElementValues(client_.shared_from_this(), elementValues);
  } else {
    logElementValues(elementValues);
  }
}

void Implementation::logReport(const std::shared_ptr<NSData>& data, std::uint32_t reportID) const {
  wlhid::log(wlhid::site::receivedData, client_, reportID, data);
}

namespace {

/// A member that is not an element value is logged like nil: every number is 0 and the bytes are
/// null.
void logElementValue(const WLHIDEventRouterClient& client,
                     const std::shared_ptr<NSObject>& member) {
  if (!wlhid::isWanted(wlhid::site::receivedElementValues)) return;
  const auto value = platform::objectCast<KQHIDDeviceElementValue>(member);
  const platform::HIDElementValueRecord record =
      value ? value->record() : platform::HIDElementValueRecord();
  wlhid::send(wlhid::site::receivedElementValues, client.logTags(), record.reportID, record.usage,
              record.usagePage, static_cast<std::uint32_t>(record.cookie), record.integerValue,
              value ? value->bytesValue() : nullptr);
}

}  // namespace

void Implementation::logElementValues(const std::shared_ptr<NSArray>& elementValues) const {
  // Keeps the array alive during the walk: a log sink may make the caller drop its reference.
  const std::shared_ptr<NSArray> walked =
      elementValues;  // NOLINT(performance-unnecessary-copy-initialization)
  if (!walked) return;
  walked->enumerateObjects(
      [this](const std::shared_ptr<NSObject>& member) { logElementValue(client_, member); });
}
