// SPDX-License-Identifier: Apache-2.0

#include "input/InputRelay.h"

#include <utility>
#include <vector>

#include "platform/kit/KQHIDDeviceElementValue.h"

namespace wlhid {

namespace {

/// The spans are those of the array's values, which the caller keeps.
std::vector<Value> valuesIn(const platform::NSArray& array) {
  std::vector<Value> values;
  values.reserve(array.count());
  array.enumerateObjects([&](const std::shared_ptr<platform::NSObject>& member) {
    const auto element = platform::objectCast<platform::KQHIDDeviceElementValue>(member);
    if (element == nullptr) return;
    const auto& record = element->record();
    values.push_back({{record.usagePage, record.usage},
                      record.reportID,
                      record.cookie,
                      record.integerValue,
                      std::as_bytes(record.bytes)});
  });
  return values;
}

}  // namespace

void InputRelay::hidEventRouterClient_clientStatusChangedTo(
    const std::shared_ptr<WLHIDEventRouterClient>& /*client*/,
    WLHIDEventRouterClientStatus status) {
  if (status == WLHIDEventRouterClientStatusRouting) reports_ = 0;
  receivers_.status(status);
}

void InputRelay::hidEventRouterClient_handleError(
    const std::shared_ptr<WLHIDEventRouterClient>& /*client*/,
    const std::shared_ptr<platform::NSError>& error) {
  receivers_.failed(error);
}

void InputRelay::hidEventRouterClient_receivedElementValues(
    const std::shared_ptr<WLHIDEventRouterClient>& /*client*/,
    const std::shared_ptr<platform::NSArray>& elementValues) {
  if (!handlers_->values) return;
  strand_->run(
      [handlers = handlers_, elementValues] { handlers->values(valuesIn(*elementValues)); });
}

void InputRelay::hidEventRouterClient_receivedReportData_reportID(
    const std::shared_ptr<WLHIDEventRouterClient>& /*client*/,
    const std::shared_ptr<platform::NSData>& data, std::uint32_t reportID) {
  if (!handlers_->report) return;
  strand_->run([handlers = handlers_, data, reportID, time = std::chrono::steady_clock::now(),
                number = ++reports_] {
    handlers->report({reportID, std::as_bytes(data->span()), time, number});
  });
}

}  // namespace wlhid
