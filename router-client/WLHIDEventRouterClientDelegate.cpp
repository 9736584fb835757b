// SPDX-License-Identifier: Apache-2.0

#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"

#include "router-client/WLHIDEventRouterClient+Implementation.h"

using Implementation = WLHIDEventRouterClient::Implementation;

// Reached when a delegate does not override the method: behaves as if there were no delegate.

void WLHIDEventRouterClientDelegate::hidEventRouterClient_clientStatusChangedTo(
    const std::shared_ptr<WLHIDEventRouterClient>&, WLHIDEventRouterClientStatus) {}

void WLHIDEventRouterClientDelegate::hidEventRouterClient_handleError(
    const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSError>&) {}

void WLHIDEventRouterClientDelegate::hidEventRouterClient_receivedElementValues(
    const std::shared_ptr<WLHIDEventRouterClient>& client,
    const std::shared_ptr<platform::NSArray>& elementValues) {
  if (client) Implementation::of(*client).logElementValues(elementValues);
}

void WLHIDEventRouterClientDelegate::hidEventRouterClient_receivedReportData_reportID(
    const std::shared_ptr<WLHIDEventRouterClient>& client,
    const std::shared_ptr<platform::NSData>& data, std::uint32_t reportID) {
  if (client) Implementation::of(*client).logReport(data, reportID);
}
