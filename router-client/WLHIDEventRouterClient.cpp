// The object itself, its status model and the policy that decides about the connection.
#include "WLHIDAccess/WLHIDEventRouterClient.h"

#include <utility>

#include "router-client/ClientLog.h"

using platform::NSArray;
using platform::NSClass;
using platform::NSDictionary;
using platform::NSNotificationCenter;
using platform::str;

// ---- Life and tags

std::shared_ptr<WLHIDEventRouterClient>
WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
    std::uint64_t registryEntryID, std::uint64_t deviceMode,
    const std::shared_ptr<NSDictionary>& tagDictionary,
    const std::shared_ptr<NSDictionary>& typeDictionary) {
  auto self = std::make_shared<WLHIDEventRouterClient>(Creation(), registryEntryID, deviceMode,
                                                       tagDictionary, typeDictionary);
  wlhid::log(wlhid::site::init, *self);
  self->_eventRouterStatus = self->currentEventRouterStatus();
  self->_clientStatus = WLHIDEventRouterClientStatusIdle;
  NSNotificationCenter::defaultCenter()->addObserver_selector_name_object(
      platform::notificationObserver(
          self, "_installationStatusChanged:", &WLHIDEventRouterClient::_installationStatusChanged),
      str(WLHIDEventRouterClientInstallationStatusChanged), /*object=*/nullptr);
  return self;
}

WLHIDEventRouterClient::WLHIDEventRouterClient(Creation, std::uint64_t registryEntryID,
                                               std::uint64_t deviceMode,
                                               std::shared_ptr<NSDictionary> tagDictionary,
                                               std::shared_ptr<NSDictionary> typeDictionary)
    : _registryEntryID(registryEntryID),
      _hidDeviceMode(deviceMode),
      _tagsByKQHIDUsageCode(std::move(tagDictionary)),
      _typeByKQHIDUsageCode(std::move(typeDictionary)) {}

// No stop request: the router learns of the end by the connection's.
WLHIDEventRouterClient::~WLHIDEventRouterClient() {
  if (_forkMark.isInherited()) return;  // its locks may be held by threads that the child lacks
  wlhid::log(wlhid::site::dealloc, *this);
  closeConnection();
  // Where memory is short the registration stays for the center to clear away: it is a weak one.
  wlhid::unlessMemoryIsShort([this] {
    NSNotificationCenter::defaultCenter()->removeObserver_name_object(
        this, str(WLHIDEventRouterClientInstallationStatusChanged), /*object=*/nullptr);
  });
}

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

// ---- Properties

std::uint64_t WLHIDEventRouterClient::registryEntryID() const {
  return _registryEntryID;
}
std::uint64_t WLHIDEventRouterClient::hidDeviceMode() const {
  return _hidDeviceMode;
}
WLHIDEventRouterStatus WLHIDEventRouterClient::eventRouterStatus() const {
  return _eventRouterStatus;
}
WLHIDEventRouterClientStatus WLHIDEventRouterClient::clientStatus() const {
  return _clientStatus;
}
bool WLHIDEventRouterClient::started() const {
  return _started;
}

std::shared_ptr<WLHIDEventRouterClientDelegate> WLHIDEventRouterClient::delegate() const {
  return _delegate.ask([](const auto& reference) { return reference.lock(); });
}
void WLHIDEventRouterClient::setDelegate(
    const std::shared_ptr<WLHIDEventRouterClientDelegate>& delegate) {
  _delegate.exchange(delegate);
}

// Both setters announce themselves as a whole, log line and equal values included: an observer
// hears did-change when everything that the change sets off is done.

void WLHIDEventRouterClient::setStarted(bool newStarted) {
  if (_forkMark.isInherited()) return;
  const auto self = weak_from_this().lock();
  willChangeValueForKey("started");
  storeStarted(newStarted);
  didChangeValueForKey("started");
}

void WLHIDEventRouterClient::storeStarted(bool newStarted) {
  wlhid::log(wlhid::site::setStarted, *this, newStarted);
  if (_started.exchange(newStarted) == newStarted) return;
  _updateConnection();
}

void WLHIDEventRouterClient::setClientStatus(WLHIDEventRouterClientStatus newClientStatus) {
  const auto self = weak_from_this().lock();
  willChangeValueForKey("clientStatus");
  storeClientStatus(newClientStatus);
  didChangeValueForKey("clientStatus");
}

void WLHIDEventRouterClient::storeClientStatus(WLHIDEventRouterClientStatus newClientStatus) {
  wlhid::log(wlhid::site::setClientStatus, *this, newClientStatus);
  if (_clientStatus.exchange(newClientStatus) == newClientStatus) return;
  if (const auto delegate = this->delegate())
    delegate->hidEventRouterClient_clientStatusChangedTo(shared_from_this(), newClientStatus);
}

// ---- Router status and connection policy

WLHIDEventRouterStatus WLHIDEventRouterClient::currentEventRouterStatus() const {
  wlhid::log(wlhid::site::currentEventRouterStatus, *this);
  return isInstalled() ? WLHIDEventRouterStatusInstalled : WLHIDEventRouterStatusNotInstalled;
}

void WLHIDEventRouterClient::_installationStatusChanged(
    const std::shared_ptr<platform::NSNotification>&) {
  if (_forkMark.isInherited()) return;
  const auto self = weak_from_this().lock();
  const WLHIDEventRouterStatus newStatus = currentEventRouterStatus();
  wlhid::log(wlhid::site::installationStatusChanged, *this);
  if (newStatus == _eventRouterStatus) return;
  willChangeValueForKey("eventRouterStatus");
  _eventRouterStatus = newStatus;
  _updateConnection();
  didChangeValueForKey("eventRouterStatus");
}

bool WLHIDEventRouterClient::isRouterInstalled() const {
  return _eventRouterStatus == WLHIDEventRouterStatusInstalled;
}

bool WLHIDEventRouterClient::isConnectionPresent() const {
  return xpcConnectionToService.ask([](const auto& connection) { return connection != nullptr; });
}

void WLHIDEventRouterClient::_updateConnection() {
  wlhid::log(wlhid::site::updateConnection, *this, [this] { return started(); });
  settleConnection();
}

void WLHIDEventRouterClient::settleConnection() {
  while (applyConnectionPolicy()) continue;
}

/// The one place that decides:
///
///   started  router         connection  action
///   no       any            present     stop request, close
///   no       any            absent      nothing
///   yes      installed      absent      open; unless that fails, status Opening and start request
///   yes      installed      present     nothing: a session is running or pending
///   yes      not installed  any         close if present; then status RouterUnavailable
///
/// Returns whether to apply it once more, because another thread came by while this one had the
/// turn (OpeningTurn.h).
bool WLHIDEventRouterClient::applyConnectionPolicy() {
  _openingTurn.visit();
  if (!started()) {
    if (isConnectionPresent()) stopAndClose();
    return false;
  }
  if (!isRouterInstalled()) return closeForWantOfRouter();
  return !isConnectionPresent() && openAndStart();
}

/// Closes even where the stop request cannot be made for want of memory.
void WLHIDEventRouterClient::stopAndClose() {
  try {
    stopListeningToService();
  } catch (...) {
    closeConnection();
    throw;
  }
  closeConnection();
}

/// Runs `action` with the turn; another thread that has it is left a note instead. Returns whether
/// to apply the policy once more.
template <class Action>
bool WLHIDEventRouterClient::inOpeningTurn(const Action& action) {
  if (!_openingTurn.enter()) return false;
  try {
    action();
  } catch (...) {
    // From a delegate, as a rule. Whoever left a note relies on us all the same.
    if (_openingTurn.leave()) settleConnection();
    throw;
  }
  return _openingTurn.leave();
}

// In a turn, look again: what another thread finished before it began left no note.

/// With the turn, so that no other thread opens a connection between the look and the status, which
/// would then deny it.
bool WLHIDEventRouterClient::closeForWantOfRouter() {
  return inOpeningTurn([this] {
    if (!started() || isRouterInstalled()) return;
    if (isConnectionPresent()) closeConnection();
    if (!isConnectionPresent()) setClientStatus(WLHIDEventRouterClientStatusRouterUnavailable);
  });
}

bool WLHIDEventRouterClient::openAndStart() {
  return inOpeningTurn([this] {
    if (!started() || !isRouterInstalled() || isConnectionPresent()) return;
    if (openConnection() != nullptr) return;
    setClientStatus(WLHIDEventRouterClientStatusOpening);
    startListeningToService();
  });
}
