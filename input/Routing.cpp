// SPDX-License-Identifier: Apache-2.0

#include "input/Routing.h"

#include <utility>

#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/PrintableText.h"

namespace wlhid {

namespace {

using Client = WLHIDEventRouterClient;

/// So many failures in a row, and there is no directory.
constexpr int kNoDirectory = 3;
/// How often a no is looked at again. Nobody is asked for that.
constexpr std::chrono::seconds kAskAgain{5};

// The router's codes, sign-extended.
constexpr std::int64_t kNoDevice = -536870208;     // 0xE00002C0
constexpr std::int64_t kBadArgument = -536870206;  // 0xE00002C2
constexpr std::int64_t kUnderrun = -536870169;     // 0xE00002E7
constexpr std::int64_t kAborted = -536870165;      // 0xE00002EB

/// Whether it is the same one, connected again: its ID is another one then.
bool isSame(const Device& one, const Device& other) {
  return one.vendor == other.vendor && one.product == other.product && one.serial == other.serial &&
         one.interface == other.interface && one.name == other.name;
}

/// The reason alone, of a text that may begin with what follows from it.
std::string withoutVerdict(const std::string& text) {
  constexpr std::string_view kVerdict = "not permitted: ";
  return text.starts_with(kVerdict) ? text.substr(kVerdict.size()) : text;
}

/// The values of these usages; null: all.
std::shared_ptr<platform::NSDictionary> tagsOf(const std::vector<Usage>& usages) {
  if (usages.empty()) return nullptr;
  std::vector<platform::NSDictionary::Entry> entries;
  entries.reserve(usages.size());
  for (const Usage& each : usages)
    entries.emplace_back(
        platform::NSNumber::numberWithUnsignedLongLong(std::uint64_t{each.page} << 16U | each.id),
        platform::str(each.name()));
  return platform::NSDictionary::dictionaryWithEntries(std::move(entries));
}

}  // namespace

// ---- From any thread

void Input::Implementation::begin() {
  onLoop(&Implementation::connect);
}

void Input::Implementation::onLoop(void (Implementation::*work)()) {
  Loop::shared().post([self = shared_from_this(), work] {
    {
      const std::lock_guard lock(self->mutex_);
      if (self->isEnded_) return;
    }
    ((*self).*work)();
  });
}

/// The client is stopped here, so that the device is free again at once; the rest is the loop's.
void Input::Implementation::end() {
  {
    const std::lock_guard lock(mutex_);
    isEnded_ = true;
  }
  strand_->close();
  if (const auto client = this->client()) client->setStarted(false);
  Loop::shared().post([self = shared_from_this()] {
    self->close();
    Loop::shared().cancel(self->pause_);
    self->installation_ = nullptr;
    if (self->directory_ != nullptr) self->directory_->end();
  });
}

void Input::Implementation::retry() {
  onLoop(&Implementation::attemptNow);
}

Status Input::Implementation::status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

std::shared_ptr<Client> Input::Implementation::client() const {
  const std::lock_guard lock(mutex_);
  return client_;
}

// ---- What has happened

void Input::Implementation::connect() {
  DirectoryConnection::Events events;
  const auto weak = weak_from_this();
  const auto told = [weak](void (Implementation::*what)(const Device&)) {
    return [weak, what](const Device& device) {
      if (const auto self = weak.lock()) ((*self).*what)(device);
    };
  };
  events.listed = [weak](const std::vector<Device>&, bool) {
    if (const auto self = weak.lock()) self->listed();
  };
  events.arrived = told(&Implementation::arrived);
  events.changed = told(&Implementation::changed);
  events.departed = told(&Implementation::departed);
  events.lost = [weak](Loss loss, const std::string& why) {
    if (const auto self = weak.lock()) self->directoryLost(loss, why);
  };
  directory_ = std::make_shared<DirectoryConnection>(Loop::shared(), filter(), std::move(events));
  installation_ = InstallationWatch::shared().subscribe([weak] {
    if (const auto self = weak.lock()) self->installationChanged();
  });
  if (const Presence presence = Router::presence(); !presence)
    tell(InputState::WaitingForRouter, "waiting for the router: " + presence.text);
  directory_->begin();
}

void Input::Implementation::listed() {
  directoryFailures_ = 0;
  hasDirectory_ = true;
  watch_ = nullptr;
  nameDevice();
  if (hasGivenUp_ || refusedAs_) return;
  const auto client = this->client();
  const bool hasNoRouter =
      client != nullptr && client->clientStatus() == WLHIDEventRouterClientStatusRouterUnavailable;
  if (client == nullptr || mustRestart_ || isDoubtful_ || hasNoRouter) attempt();
}

/// Of a device that was opened without a directory only the ID is known until there is one.
void Input::Implementation::nameDevice() {
  if (!device_ || !device_->name.empty()) return;
  const auto known = directory_->known().find(device_->id);
  if (known == directory_->known().end()) return;
  {
    const std::lock_guard lock(mutex_);
    device_ = known->second;
  }
  if (status().state == InputState::Routing) tell(InputState::Routing, "routing " + deviceName());
}

void Input::Implementation::arrived(const Device& device) {
  if (!hasGivenUp_ && client() == nullptr && isWanted(device)) open(device);
}

void Input::Implementation::changed(const Device& device) {
  if (!device_ || device.id != device_->id) return;
  {
    const std::lock_guard lock(mutex_);
    device_ = device;
  }
  if (mayHaveBecomeAllowed(device)) attemptNow();
}

void Input::Implementation::departed(const Device& device) {
  if (!device_ || device.id != device_->id) return;
  close();
  if (hasGivenUp_) return;
  tell(InputState::WaitingForDevice,
       "waiting for the device: " + deviceName() + " is not connected");
  if (options_.device == 0) attempt();
}

void Input::Implementation::directoryLost(Loss loss, const std::string& why) {
  hasDirectory_ = false;
  if (hasGivenUp_) return;
  mustRestart_ = mustRestart_ || loss == Loss::Died;
  isDoubtful_ = isDoubtful_ || loss == Loss::Closed;
  if (const Presence presence = Router::presence(); !presence)
    return tell(InputState::WaitingForRouter, "waiting for the router: " + presence.text);
  if (client() != nullptr && !refusedAs_) watchRouter();
  // A router that has only just been installed has not had the time to answer.
  directoryFailures_ += loss == Loss::Closed ? 1 : 0;
  if (loss == Loss::Closed && directoryFailures_ == kNoDirectory) goOnWithoutDirectory();
  if (loss == Loss::Died || (client() == nullptr && !mayAskForDevice()))
    tell(InputState::Reconnecting, "reconnecting: " + why);
}

void Input::Implementation::goOnWithoutDirectory() {
  if (refusedAs_) return;
  if (mustRestart_ || (client() == nullptr && mayAskForDevice())) attempt();
}

void Input::Implementation::routerDied() {
  tell(InputState::Reconnecting, "reconnecting: the router has ended unexpectedly");
  tryAgainLater();
}

void Input::Implementation::installationChanged() {
  if (hasGivenUp_) return;
  if (const Presence presence = Router::presence(); !presence)
    return tell(InputState::WaitingForRouter, "waiting for the router: " + presence.text);
  directory_->hurry();
}

void Input::Implementation::clientChanged(WLHIDEventRouterClientStatus status) {
  if (status == WLHIDEventRouterClientStatusOpening) {
    isDoubtful_ = false;
    watchRouter();
  }
  if (status == WLHIDEventRouterClientStatusRouterUnavailable) watch_ = nullptr;
  if (status != WLHIDEventRouterClientStatusRouting) return;
  refusedAs_.reset();
  backoff_.reset();
}

void Input::Implementation::tellOfClient(std::uint64_t generation, const std::string& device,
                                         WLHIDEventRouterClientStatus status) {
  const std::string missing = status == WLHIDEventRouterClientStatusRouterUnavailable
                                  ? "waiting for the router: " + Router::presence().text
                                  : std::string();
  const std::lock_guard lock(mutex_);
  if (generation != generation_) return;
  if (status == WLHIDEventRouterClientStatusRouting)
    tellLocked(InputState::Routing, "routing " + device, {});
  if (status == WLHIDEventRouterClientStatusRouterUnavailable)
    tellLocked(InputState::WaitingForRouter, missing, {});
  if (status != WLHIDEventRouterClientStatusOpening) return;
  if (status_.state == InputState::Routing)
    tellLocked(InputState::Reconnecting, "reconnecting: the router has closed the connection", {});
  else if (status_.state != InputState::Reconnecting)
    tellLocked(InputState::Connecting, "connecting: the router has been asked for " + device, {});
}

void Input::Implementation::clientFailed(const Error& error) {
  switch (error.code()) {
    case WLHIDEventRouterNotPermitted:
      return refused(error);
    case kUnderrun:
    case kAborted:
      return giveUp(InputState::Ended, error);
    case kBadArgument:
      return giveUp(InputState::Stopped, error);
    case kNoDevice:
      close();
      tell(InputState::WaitingForDevice, std::string("waiting for the device: ") + error.what(),
           error);
      return tryAgainLater();
    default:
      tell(InputState::Reconnecting, std::string("reconnecting: ") + error.what(), error);
      return tryAgainLater();
  }
}

/// A person who has said no is not asked again until what is known of the permission has changed.
void Input::Implementation::refused(const Error& error) {
  client()->setStarted(false);
  watch_ = nullptr;
  tell(InputState::NotAllowed, "not allowed: " + withoutVerdict(error.what()), error);
  // As far as is known nobody has to be asked: the login session may have been in the background.
  if (device_->permission == Permission::Yes) return tryAgainLater();
  refusedAs_ = device_->permission;
  askAgainLater();
}

bool Input::Implementation::mayHaveBecomeAllowed(const Device& device) {
  if (!refusedAs_ || hasGivenUp_) return false;
  const Permission before = std::exchange(*refusedAs_, device.permission);
  return device.permission != before && device.permission != Permission::No &&
         device.permission != Permission::Unknown;
}

// ---- What is done about it

std::string Input::Implementation::deviceName() const {
  if (device_ && !device_->name.empty()) return device_->name;
  return platform::stringWithFormat("0x%llx", device_ ? device_->id : options_.device);
}

void Input::Implementation::attemptNow() {
  hasGivenUp_ = false;
  refusedAs_.reset();
  backoff_.reset();
  directory_->hurry();
  attempt();
}

void Input::Implementation::attempt() {
  if (client() != nullptr) return restart();
  if (const auto device = findDevice()) return open(*device);
  if (status().state != InputState::WaitingForDevice)
    tell(InputState::WaitingForDevice, "waiting for the device: it is not connected");
}

/// A router without a directory serves those who know what they want.
bool Input::Implementation::mayAskForDevice() const {
  return directoryFailures_ >= kNoDirectory && options_.device != 0;
}

std::optional<Device> Input::Implementation::findDevice() const {
  for (const auto& [id, device] : directory_->known())
    if (isWanted(device)) return device;
  if (!mayAskForDevice()) return std::nullopt;
  if (device_) return device_;
  Device device;
  device.id = options_.device;
  return device;
}

bool Input::Implementation::isWanted(const Device& device) const {
  if (options_.device == 0) return true;  // the filter has decided
  return device.id == options_.device || (device_ && isSame(device, *device_));
}

/// Of a known device also those like it: connected again, it has another ID.
DeviceFilter Input::Implementation::filter() const {
  if (options_.device == 0) return options_.which;
  DeviceFilter filter;
  filter.matching.push_back({.id = options_.device});
  if (device_ && device_->vendor != 0)
    filter.matching.push_back({.vendor = device_->vendor, .product = device_->product});
  return filter;
}

void Input::Implementation::open(const Device& device) {
  const bool isFirst = !device_;
  std::uint64_t generation = 0;
  {
    const std::lock_guard lock(mutex_);
    device_ = device;
    generation = ++generation_;
  }
  const auto weak = weak_from_this();
  const auto onLoop = [weak, generation](auto work) {
    Loop::shared().post([weak, generation, work] {
      const auto self = weak.lock();
      if (self != nullptr && self->isCurrent(generation)) work(*self);
    });
  };
  relay_ = std::make_shared<InputRelay>(
      handlers_, strand_,
      InputRelay::Receivers{
          [onLoop, weak, generation, name = deviceName()](WLHIDEventRouterClientStatus status) {
            if (const auto self = weak.lock()) self->tellOfClient(generation, name, status);
            onLoop([status](Implementation& self) { self.clientChanged(status); });
          },
          [onLoop](const std::shared_ptr<platform::NSError>& error) {
            onLoop([error](Implementation& self) { self.clientFailed(Error(error)); });
          }});
  const auto client = Client::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
      device.id, options_.isExclusive ? 1 : 0, tagsOf(options_.usages), nullptr);
  client->setDelegate(relay_);
  {
    const std::lock_guard lock(mutex_);
    client_ = client;
  }
  restart();
  if (isFirst && options_.device != 0) directory_->setFilter(filter());
}

/// A client that is stopped before it has started sends nothing.
void Input::Implementation::restart() {
  const auto client = this->client();
  mustRestart_ = false;
  isDoubtful_ = false;
  watchRouter();
  client->setStarted(false);
  client->setStarted(true);
  const std::lock_guard lock(mutex_);
  if (!isEnded_) return;
  Loop::shared().post([client] { client->setStarted(false); });
}

/// As long as no directory's connection tells that the router has died. Begins before the client
/// starts, so that it is the same router's end.
void Input::Implementation::watchRouter() {
  if (watch_ != nullptr || hasDirectory_) return;
  watch_ = std::make_shared<RouterWatch>(Loop::shared(), [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->routerDied();
  });
  watch_->begin();
}

void Input::Implementation::close() {
  mustRestart_ = false;
  isDoubtful_ = false;
  watch_ = nullptr;
  std::shared_ptr<Client> closed;
  {
    const std::lock_guard lock(mutex_);
    ++generation_;
    closed.swap(client_);
  }
  if (closed != nullptr) closed->setStarted(false);
  relay_ = nullptr;
}

void Input::Implementation::giveUp(InputState state, const Error& error) {
  hasGivenUp_ = true;
  close();
  tell(state, std::string(nameOf(state)) + ": " + error.what(), error);
}

void Input::Implementation::tryAgainLater() {
  Loop::shared().cancel(pause_);
  pause_ = Loop::shared().after(backoff_.next(), [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self != nullptr && !self->hasGivenUp_) self->attempt();
  });
}

void Input::Implementation::askAgainLater() {
  Loop::shared().cancel(pause_);
  pause_ = Loop::shared().after(kAskAgain, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self == nullptr || !self->refusedAs_) return;
    self->directory_->refresh();
    self->askAgainLater();
  });
}

bool Input::Implementation::isCurrent(std::uint64_t generation) const {
  const std::lock_guard lock(mutex_);
  return generation_ == generation;
}

void Input::Implementation::tell(InputState state, const std::string& text,
                                 const std::optional<Error>& error) {
  const std::lock_guard lock(mutex_);
  tellLocked(state, text, error);
}

/// Posting calls nobody, so that statuses are told in the order in which they come about.
void Input::Implementation::tellLocked(InputState state, const std::string& words,
                                       const std::optional<Error>& error) {
  const std::string text = platform::printableLine(words);  // part of it may be the router's
  if (isEnded_ || (status_.state == state && status_.text == text)) return;
  const bool isNew = status_.state != state;
  status_ = {state, text, isNew ? std::chrono::system_clock::now() : status_.since, error, device_};
  if (!handlers_->status) return;
  strand_->post([handlers = handlers_, status = status_] { handlers->status(status); });
}

}  // namespace wlhid
