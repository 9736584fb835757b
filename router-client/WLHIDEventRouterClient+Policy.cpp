// SPDX-License-Identifier: Apache-2.0

// Creation and destruction of a client, its status model, and the connection policy.
#include <utility>

#include "platform/foundation/NSNotificationCenter.h"
#include "router-client/ClientLog.h"
#include "router-client/WLHIDEventRouterClient+Implementation.h"

using platform::NSDictionary;
using platform::NSNotificationCenter;
using platform::str;
using Implementation = WLHIDEventRouterClient::Implementation;

// ---- Creation and destruction

Implementation::Implementation(Client& client, std::uint64_t registryEntryID,
                               std::uint64_t deviceMode,
                               std::shared_ptr<NSDictionary> tagDictionary,
                               std::shared_ptr<NSDictionary> typeDictionary)
    : client_(client),
      _registryEntryID(registryEntryID),
      _hidDeviceMode(deviceMode),
      _tagsByKQHIDUsageCode(std::move(tagDictionary)),
      _typeByKQHIDUsageCode(std::move(typeDictionary)) {}

void Implementation::begin() {
  wlhid::log(wlhid::site::init, client_);
  _eventRouterStatus = currentEventRouterStatus();
  NSNotificationCenter::defaultCenter()->addObserver_selector_name_object(
      platform::notificationObserver(
          exported(), "_installationStatusChanged:", &Implementation::_installationStatusChanged),
      str(WLHIDEventRouterClientInstallationStatusChanged), /*object=*/nullptr);
}

// No stop request: closing the connection tells the router.
Implementation::~Implementation() {
  if (_forkMark.isInherited()) return;  // its locks may be held by threads the child doesn't have
  wlhid::log(wlhid::site::dealloc, client_);
  closeConnection();
  // If memory runs out, the center clears the registration later: it is a weak one.
  wlhid::ignoringOutOfMemory([this] {
    NSNotificationCenter::defaultCenter()->removeObserver_name_object(
        this, str(WLHIDEventRouterClientInstallationStatusChanged), /*object=*/nullptr);
  });
}

std::shared_ptr<Implementation> Implementation::exported() {
  auto client = client_.weak_from_this().lock();
  return client ? std::shared_ptr<Implementation>(std::move(client), this) : nullptr;
}

// ---- Properties

std::shared_ptr<WLHIDEventRouterClientDelegate> Implementation::delegate() const {
  return _delegate.ask([](const auto& reference) { return reference.lock(); });
}
void Implementation::setDelegate(const std::shared_ptr<WLHIDEventRouterClientDelegate>& delegate) {
  _delegate.exchange(delegate);
}

// Both setters announce the whole call, including the log line and even if the value is the same:
// did-change comes after everything that the change triggers.

void Implementation::setStarted(bool newStarted) {
  if (_forkMark.isInherited()) return;
  const auto self = client_.weak_from_this().lock();
  client_.willChangeValueForKey("started");
  storeStarted(newStarted);
  client_.didChangeValueForKey("started");
}

void Implementation::storeStarted(bool newStarted) {
  wlhid::log(wlhid::site::setStarted, client_, newStarted);
  if (_started.exchange(newStarted) == newStarted) return;
  _updateConnection();
}

void Implementation::setClientStatus(WLHIDEventRouterClientStatus newClientStatus) {
  const auto self = client_.weak_from_this().lock();
  client_.willChangeValueForKey("clientStatus");
  storeClientStatus(newClientStatus);
  client_.didChangeValueForKey("clientStatus");
}

void Implementation::storeClientStatus(WLHIDEventRouterClientStatus newClientStatus) {
  wlhid::log(wlhid::site::setClientStatus, client_, newClientStatus);
  if (_clientStatus.exchange(newClientStatus) == newClientStatus) return;
  if (const auto delegate = this->delegate())
    delegate->hidEventRouterClient_clientStatusChangedTo(client_.shared_from_this(),
                                                         newClientStatus);
}

// ---- Router status and connection policy

WLHIDEventRouterStatus Implementation::currentEventRouterStatus() const {
  wlhid::log(wlhid::site::currentEventRouterStatus, client_);
  return Client::isInstalled() ? WLHIDEventRouterStatusInstalled
                               : WLHIDEventRouterStatusNotInstalled;
}

void Implementation::_installationStatusChanged(const std::shared_ptr<platform::NSNotification>&) {
  if (_forkMark.isInherited()) return;
  const auto self = client_.weak_from_this().lock();
  const WLHIDEventRouterStatus newStatus = currentEventRouterStatus();
  wlhid::log(wlhid::site::installationStatusChanged, client_);
  if (newStatus == _eventRouterStatus) return;
  client_.willChangeValueForKey("eventRouterStatus");
  _eventRouterStatus = newStatus;
  _updateConnection();
  client_.didChangeValueForKey("eventRouterStatus");
}

bool Implementation::isRouterInstalled() const {
  return _eventRouterStatus == WLHIDEventRouterStatusInstalled;
}

bool Implementation::isConnectionPresent() const {
  return xpcConnectionToService.ask([](const auto& connection) { return connection != nullptr; });
}

void Implementation::_updateConnection() {
  wlhid::log(wlhid::site::updateConnection, client_, [this] { return started(); });
  settleConnection();
}

void Implementation::settleConnection() {
  while (applyConnectionPolicy()) continue;
}

/// The only place that decides about the connection:
///
///   started  router         connection  action
///   no       any            present     stop request, close
///   no       any            absent      nothing
///   yes      installed      absent      open; unless that fails, status Opening and start request
///   yes      installed      present     nothing: a session is running or pending
///   yes      not installed  any         close if present; then status RouterUnavailable
///
/// Returns whether to apply it again because another thread left a note during this one's turn
/// (OpeningTurn.h).
bool Implementation::applyConnectionPolicy() {
  _openingTurn.visit();
  if (!started()) {
    if (isConnectionPresent()) stopAndClose();
    return false;
  }
  if (!isRouterInstalled()) return closeWithoutRouter();
  return !isConnectionPresent() && openAndStart();
}

/// Closes even if there is no memory for the stop request.
void Implementation::stopAndClose() {
  try {
    stopListeningToService();
  } catch (...) {
    closeConnection();
    throw;
  }
  closeConnection();
}

/// Takes the turn and runs `action`, or leaves a note if another thread has the turn. Returns
/// whether to apply the policy again.
template <class Action>
bool Implementation::inOpeningTurn(const Action& action) {
  if (!_openingTurn.enter()) return false;
  try {
    action();
  } catch (...) {
    // Usually thrown by a delegate. A thread that left a note still relies on this one.
    if (_openingTurn.leave()) settleConnection();
    throw;
  }
  return _openingTurn.leave();
}

// Inside a turn, check again: what another thread finished before the turn began left no note.

/// Takes the turn so that no other thread opens a connection between the check and the status
/// change, which would then be wrong.
bool Implementation::closeWithoutRouter() {
  return inOpeningTurn([this] {
    if (!started() || isRouterInstalled()) return;
    if (isConnectionPresent()) closeConnection();
    if (!isConnectionPresent()) setClientStatus(WLHIDEventRouterClientStatusRouterUnavailable);
  });
}

bool Implementation::openAndStart() {
  return inOpeningTurn([this] {
    if (!started() || !isRouterInstalled() || isConnectionPresent()) return;
    if (openConnection() != nullptr) return;
    setClientStatus(WLHIDEventRouterClientStatusOpening);
    startListeningToService();
  });
}
