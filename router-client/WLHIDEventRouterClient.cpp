// SPDX-License-Identifier: Apache-2.0

// The client's public interface: forwards every call to the implementation.
#include "WLHIDAccess/WLHIDEventRouterClient.h"

#include "router-client/WLHIDEventRouterClient+Implementation.h"

using platform::NSArray;
using platform::NSClass;
using platform::NSDictionary;
using platform::str;

std::shared_ptr<WLHIDEventRouterClient>
WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
    std::uint64_t registryEntryID, std::uint64_t deviceMode,
    const std::shared_ptr<NSDictionary>& tagDictionary,
    const std::shared_ptr<NSDictionary>& typeDictionary) {
  const std::shared_ptr<WLHIDEventRouterClient> self(
      new WLHIDEventRouterClient(registryEntryID, deviceMode, tagDictionary, typeDictionary));
  self->implementation_->begin();
  return self;
}

WLHIDEventRouterClient::WLHIDEventRouterClient(std::uint64_t registryEntryID,
                                               std::uint64_t deviceMode,
                                               const std::shared_ptr<NSDictionary>& tagDictionary,
                                               const std::shared_ptr<NSDictionary>& typeDictionary)
    : implementation_(std::make_unique<Implementation>(*this, registryEntryID, deviceMode,
                                                       tagDictionary, typeDictionary)) {}

WLHIDEventRouterClient::~WLHIDEventRouterClient() = default;

const NSClass& WLHIDEventRouterClient::classObject() {
  static const NSClass object{"WLHIDEventRouterClient", &platform::NSObject::classObject()};
  return object;
}

std::shared_ptr<NSArray> WLHIDEventRouterClient::Class::logTags() {
  return NSArray::arrayWithObjects({str("WLHIDEventRouterClient")});
}
std::shared_ptr<NSArray> WLHIDEventRouterClient::logTags() const {
  return Class::logTags();
}

std::uint64_t WLHIDEventRouterClient::registryEntryID() const {
  return implementation_->registryEntryID();
}
std::uint64_t WLHIDEventRouterClient::hidDeviceMode() const {
  return implementation_->hidDeviceMode();
}
WLHIDEventRouterStatus WLHIDEventRouterClient::eventRouterStatus() const {
  return implementation_->eventRouterStatus();
}
WLHIDEventRouterClientStatus WLHIDEventRouterClient::clientStatus() const {
  return implementation_->clientStatus();
}
void WLHIDEventRouterClient::setClientStatus(WLHIDEventRouterClientStatus newClientStatus) {
  implementation_->setClientStatus(newClientStatus);
}
bool WLHIDEventRouterClient::started() const {
  return implementation_->started();
}
void WLHIDEventRouterClient::setStarted(bool newStarted) {
  implementation_->setStarted(newStarted);
}
std::shared_ptr<WLHIDEventRouterClientDelegate> WLHIDEventRouterClient::delegate() const {
  return implementation_->delegate();
}
void WLHIDEventRouterClient::setDelegate(
    const std::shared_ptr<WLHIDEventRouterClientDelegate>& delegate) {
  implementation_->setDelegate(delegate);
}
