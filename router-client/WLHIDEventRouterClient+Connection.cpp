// SPDX-License-Identifier: Apache-2.0

// The connection to the router: opening it, closing it, and handling its end.
#include <utility>

#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSURL.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQIOObject.h"
#include "router-client/ClientLog.h"
#include "router-client/WLHIDEventRouterClient+Implementation.h"

using namespace platform;
using Implementation = WLHIDEventRouterClient::Implementation;

namespace {

constexpr std::int64_t kRouterNotInstalled = -1;

void admitElementValues(NSXPCInterface& exportedInterface) {
  exportedInterface.setClasses_forSelector_argumentIndex_ofReply(
      {&NSMutableArray::classObject(), &KQHIDDeviceElementValue::classObject()},
      "receivedElementValues:", 0,
      /*ofReply=*/false);
}

/// The classes that a router error may carry in its user info.
void admitStartErrors(NSXPCInterface& remoteInterface) {
  remoteInterface.setClasses_forSelector_argumentIndex_ofReply(
      {&NSData::classObject(), &NSArray::classObject(), &NSNumber::classObject(),
       &NSError::classObject(), &NSString::classObject(), &NSDictionary::classObject(),
       &NSDate::classObject(), &NSURL::classObject(), &KQIOObject::classObject()},
      "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:", 0,
      /*ofReply=*/true);
}

}  // namespace

/// Returns an error if the router is not installed. Null does not guarantee a connection: a
/// platform that can't create an interface or a connection fails silently.
std::shared_ptr<NSError> Implementation::openConnection() {
  wlhid::log(wlhid::site::openConnection, client_);
  if (!KQPrivilegedHelperManager::isPriviledgedHelperInstalledWithLabel(
          str(WLHIDEventRouterLabel))) {
    return NSError::errorWithDomain_code_userInfo(str(HIDEventRouterDomain), kRouterNotInstalled,
                                                  nullptr);
  }
  const auto remoteInterface =
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol());
  if (!remoteInterface) return nullptr;
  const auto exportedInterface =
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol());
  if (!exportedInterface) return nullptr;
  admitElementValues(*exportedInterface);
  admitStartErrors(*remoteInterface);

  const auto connection =
      NSXPCConnection::initWithMachServiceName_options(str(WLHIDEventRouterLabel), /*options=*/0);
  xpcConnectionToService.exchange(connection);
  // Use the local pointer from here on: another thread may close or replace the stored one.
  if (connection) configureConnection(*connection, exportedInterface, remoteInterface);
  return nullptr;
}

void Implementation::configureConnection(NSXPCConnection& connection,
                                         const std::shared_ptr<NSXPCInterface>& exportedInterface,
                                         const std::shared_ptr<NSXPCInterface>& remoteInterface) {
  const Weak weakClient = client_.weak_from_this();
  connection.setExportedInterface(exportedInterface);
  connection.setExportedObject<WLHIDEventRouterClientProtocol>(exported());
  connection.setInterruptionHandler([weakClient] {
    wlhid::log(wlhid::site::interruption, weakClient);
    if (const auto client = weakClient.lock()) of(*client).handleInterruption();
  });
  connection.setInvalidationHandler([weakClient] {
    wlhid::log(wlhid::site::invalidation, weakClient);
    if (const auto client = weakClient.lock()) of(*client).handleInvalidation();
  });
  connection.setRemoteObjectInterface(remoteInterface);
  connection.resume();
}

void Implementation::closeConnection() {
  wlhid::log(wlhid::site::closeConnection, client_);
  const auto connection = xpcConnectionToService.load();
  if (!connection) return;
  connection->invalidate();
  // Another thread may have stored a newer connection meanwhile, which must not be dropped without
  // being invalidated.
  xpcConnectionToService.clearIfHolding(connection);
}

/// The connection is kept: an interrupted one is still usable, and nothing is restarted on it while
/// the router is still installed.
void Implementation::handleInterruption() {
  wlhid::log(wlhid::site::handleInterruption, client_);
  stopListeningToService();
  _installationStatusChanged(nullptr);
  _updateConnection();
}

/// Also runs after the client's own invalidate: the close then finds no connection, and a client
/// that was started again meanwhile gets its new connection here.
void Implementation::handleInvalidation() {
  wlhid::log(wlhid::site::handleInvalidation, client_);
  closeConnection();
  if (!started()) return;
  _installationStatusChanged(nullptr);
  _updateConnection();
}
