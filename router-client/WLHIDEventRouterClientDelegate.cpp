#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"

// The bodies do nothing: a client asks whether a method is overridden before it calls it.

void WLHIDEventRouterClientDelegate::hidEventRouterClient_clientStatusChangedTo(
    const std::shared_ptr<WLHIDEventRouterClient>&, WLHIDEventRouterClientStatus) {}

void WLHIDEventRouterClientDelegate::hidEventRouterClient_handleError(
    const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSError>&) {}

void WLHIDEventRouterClientDelegate::hidEventRouterClient_receivedElementValues(
    const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSArray>&) {}

void WLHIDEventRouterClientDelegate::hidEventRouterClient_receivedReportData_reportID(
    const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>&,
    std::uint32_t) {}

bool WLHIDEventRouterClientDelegate::respondsToSelector(
    WLHIDEventRouterClientDelegateMethod) const {
  return false;
}
