// SPDX-License-Identifier: Apache-2.0

#include "router/Session.h"

#include <stdexcept>
#include <utility>

#include "platform/foundation/Format.h"
#include "router/RouterErrors.h"

namespace router {

namespace {

using platform::stringWithFormat;

/// The client at the other end of a connection. Does not keep the connection alive: that is up to
/// the session.
class ClientSink final : public ReportSink {
 public:
  ClientSink(const std::shared_ptr<platform::NSXPCConnection>& connection,
             std::function<void()> recordingEnded)
      : connection_(connection),
        recordingEnded_(std::move(recordingEnded)),
        // A send fails only because the connection ends, which the session is notified of anyway.
        batch_(connection->makeBatch()),
        client_(batch_->proxyWithErrorHandler<WLHIDEventRouterClientProtocol>(
            [](const std::shared_ptr<platform::NSError>&) {})) {}

  void send(const std::shared_ptr<platform::NSData>& report, std::uint32_t reportID,
            const std::shared_ptr<platform::NSArray>& values) override {
    client_->receivedData_forReportID(report, reportID);
    if (values != nullptr) client_->receivedElementValues(values);
    batch_->send();
  }
  [[nodiscard]] std::size_t unsentBytes() const override {
    const auto connection = connection_.lock();
    return connection == nullptr ? 0 : connection->unsentBytes();
  }
  bool waitUntilUnsentBelow(std::size_t bytes, std::chrono::milliseconds limit) override {
    const auto connection = connection_.lock();
    return connection == nullptr || connection->waitUntilUnsentBelow(bytes, limit);
  }
  void noteRecordingEnded() override { recordingEnded_(); }
  void sayFarewell() override {
    if (const auto connection = connection_.lock()) connection->invalidate();
  }

 private:
  const std::weak_ptr<platform::NSXPCConnection> connection_;
  const std::function<void()> recordingEnded_;
  const std::shared_ptr<platform::XPCMessageBatch> batch_;
  const std::shared_ptr<WLHIDEventRouterClientProtocol> client_;
};

std::shared_ptr<platform::NSError> endOfRecording(const std::string& name, std::uint64_t entryID) {
  return routerError(IOReturn::Underrun,
                     stringWithFormat("the recording \"%s\" has been played to its end", name),
                     entryID);
}

}  // namespace

Session::Session(std::uint64_t number, std::shared_ptr<platform::NSXPCConnection> connection,
                 std::weak_ptr<SessionOwner> owner, const std::shared_ptr<Backlog>& backlog,
                 std::shared_ptr<RoutingCaller> caller)
    : number_(number),
      connection_(std::move(connection)),
      pid_(connection_->processIdentifier()),
      uid_(connection_->effectiveUserIdentifier()),
      owner_(std::move(owner)),
      caller_(std::move(caller)),
      backlog_(backlog->share(uid_)),
      lines_(backlog_->limits().logLinesPerSession) {}

template <const platform::LogTemplate& Row, class... Arguments>
void Session::log(const Arguments&... arguments) {
  if (!lines_.admits(TokenBucket::Clock::now())) return;
  if (const std::uint64_t leftOut = lines_.takeLeftOut())
    logUnlimited<row::sessionLinesLeftOut>(leftOut);
  logUnlimited<Row>(arguments...);
}

template <const platform::LogTemplate& Row, class... Arguments>
void Session::logUnlimited(const Arguments&... arguments) const {
  if (const auto owner = owner_.lock())
    owner->log(uid_, platform::LogLine::of<Row>(number_, pid_, uid_, arguments...));
}

void Session::startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
    std::uint64_t entryID, std::uint64_t deviceMode,
    const std::shared_ptr<platform::NSDictionary>& tagDictionary,
    const std::shared_ptr<platform::NSDictionary>& /*typeDictionary*/, StartReply reply) {
  giveUpStart("another start request came");
  endRouting();
  ++latestStart_;
  begin({entryID, deviceMode, tagDictionary, std::move(reply), Step::Turn, {}, {}});
}

void Session::begin(Start start) {
  const auto owner = owner_.lock();
  const auto turn = owner == nullptr ? StartLine::Turn::Never
                                     : owner->startLine().askForTurn(uid_, StartLine::Clock::now(),
                                                                     wake(), &start.ticket);
  switch (turn) {
    case StartLine::Turn::Now:
      return takeTurn(std::move(start));
    case StartLine::Turn::Later:
      waitingStart_ = std::move(start);
      return;
    case StartLine::Turn::Never:
      return refuse(start, routerError(IOReturn::Busy,
                                       "too many start requests from this user; try again later",
                                       start.entryID));
  }
}

void Session::takeTurn(Start start) {
  const auto owner = owner_.lock();
  if (owner == nullptr) return;  // the router is gone, and its connections with it
  if (const auto error = prepare(*owner, &start)) return refuse(start, error);
  if (caller_ == nullptr) return askPlace(std::move(start));
  askPermission(std::move(start));
}

void Session::askPermission(Start start) {
  start.waitsFor = Step::Permission;
  start.ticket = {};
  const std::shared_ptr<Subscription> subscription = start.routing.subscription;
  const RoutingRequest request{start.routing.device->description(), subscription->mode(),
                               subscription->filter()};
  waitingStart_ = std::move(start);
  const auto onQueue = [connection = std::weak_ptr(connection_)](std::function<void()> work) {
    if (const auto awake = connection.lock()) awake->callOnQueue(std::move(work));
  };
  const auto decided = [onQueue, session = weak_from_this(),
                        number = latestStart_](const RoutingAnswer& answer) {
    onQueue([session, number, answer] {
      if (const auto self = session.lock()) self->takePermission(number, answer);
    });
  };
  const auto revoked = [onQueue, input = std::weak_ptr(subscription), session = weak_from_this(),
                        number = latestStart_](const std::string& reason) {
    // At once: the queue may be busy, for one with the beginning of this very routing.
    if (const auto flowing = input.lock()) flowing->revoke();
    onQueue([session, number, reason] {
      if (const auto self = session.lock()) self->revoke(number, reason);
    });
  };
  // The answer comes on this queue later, so the request is still waiting.
  std::shared_ptr<RoutingPermit> permit = caller_->ask(request, decided, revoked);
  if (waitingStart_) waitingStart_->routing.permit = std::move(permit);
}

void Session::takePermission(std::uint64_t number, const RoutingAnswer& answer) {
  if (!waitingStart_ || number != latestStart_ || waitingStart_->waitsFor != Step::Permission)
    return;
  Start start = *std::exchange(waitingStart_, std::nullopt);
  if (!answer.isAllowed) {
    start.routing.permit = nullptr;
    const auto code = answer.isGone ? IOReturn::NoDevice : IOReturn::NotPermitted;
    return refuse(start, routerError(code, answer.reason, start.entryID));
  }
  start.routing.subscription->limitTo(answer.reports);
  askPlace(std::move(start));
}

void Session::askPlace(Start start) {
  const auto owner = owner_.lock();
  if (owner == nullptr) return;
  if (!start.routing.device->waitsForPlace(start.routing.subscription, wake()))
    return takePlace(std::move(start));
  start.waitsFor = Step::Place;
  waitingStart_ = std::move(start);
  const auto until = StartLine::Clock::now() + backlog_->limits().handoverGrace;
  waitingStart_->ticket = owner->startLine().waitUntil(until, wake());
}

void Session::takePlace(Start start) {
  const auto& device = start.routing.device;
  const auto& subscription = start.routing.subscription;
  if (const auto error = device->admit(subscription)) return refuse(start, error);
  {
    const std::lock_guard lock(mutex_);
    routing_ = start.routing;
  }
  const bool isAlone = subscription->mode() == DeviceMode::Exclusive;
  const std::string& name = device->description().name;
  if (isAlone)
    log<row::sessionRoutesAlone>(start.entryID, name);
  else
    log<row::sessionRoutes>(start.entryID, name);
  start.reply(nullptr);
  device->begin(subscription);
  if (start.routing.permit != nullptr) start.routing.permit->noteBeginning();
  noteChange();
}

std::function<void()> Session::wake() {
  return
      [connection = std::weak_ptr(connection_), session = weak_from_this(), number = latestStart_] {
        const auto awake = connection.lock();
        if (awake == nullptr) return;
        awake->callOnQueue([session, number] {
          if (const auto self = session.lock()) self->goOn(number);
        });
      };
}

void Session::goOn(std::uint64_t number) {
  if (!waitingStart_ || number != latestStart_) return;
  Start start = *std::exchange(waitingStart_, std::nullopt);
  if (start.waitsFor == Step::Place) return takePlace(std::move(start));
  start.ticket.useTurn();
  takeTurn(std::move(start));
}

void Session::revoke(std::uint64_t number, const std::string& reason) {
  if (waitingStart_ && number == latestStart_) {
    const Start start = *std::exchange(waitingStart_, std::nullopt);
    start.routing.device->remove(start.routing.subscription);
    return refuse(start, routerError(IOReturn::NotPermitted, reason, start.entryID));
  }
  const Routing routing = currentRouting();
  if (routing.device == nullptr || routing.start != number) return;
  log<row::sessionRevoked>(routing.device->description().registryEntryID, reason);
  endRouting();
  sayFarewell();
}

void Session::refuse(const Start& start, const std::shared_ptr<platform::NSError>& error) {
  // The code is logged separately, and the domain is always the same.
  const std::string description = error->description();
  log<row::sessionCannotRoute>(error->code(), description.substr(description.find('"')));
  start.reply(error);
}

void Session::giveUpStart(const std::string& why) {
  if (!waitingStart_) return;
  Start start = *std::exchange(waitingStart_, std::nullopt);
  // Before the answer: once it is known, others may take what this request held.
  start.ticket = {};
  start.routing.permit = nullptr;
  if (start.routing.device != nullptr) start.routing.device->remove(start.routing.subscription);
  start.reply(
      routerError(IOReturn::Aborted, "the start request was given up: " + why, start.entryID));
}

/// Checks the request and finds its device. Null, or the reason why it is refused.
std::shared_ptr<platform::NSError> Session::prepare(SessionOwner& owner, Start* start) {
  const std::uint64_t entryID = start->entryID;
  if (start->deviceMode > static_cast<std::uint64_t>(DeviceMode::Exclusive)) {
    return routerError(IOReturn::BadArgument,
                       stringWithFormat("unknown device mode %llu", start->deviceMode), entryID);
  }
  UsageFilter filter;
  try {
    filter = UsageFilter(start->tagDictionary, backlog_->limits().usagesPerFilter);
  } catch (const std::invalid_argument& error) {
    return routerError(IOReturn::BadArgument, error.what(), entryID);
  }
  const auto device = owner.deviceWithID(entryID);
  if (device == nullptr) {
    return routerError(IOReturn::NoDevice,
                       stringWithFormat("no device has the registry entry ID 0x%llx", entryID),
                       entryID);
  }
  if (auto ended = owner.endedRoutings().take(pid_, entryID)) return ended;
  const auto sink = std::make_shared<ClientSink>(
      connection_, [owner = owner_, process = pid_, entryID, name = device->description().name] {
        const auto router = owner.lock();
        if (router == nullptr) return;
        router->endedRoutings().note(process, entryID, endOfRecording(name, entryID));
      });
  start->routing = {
      device,
      std::make_shared<Subscription>(sink, std::move(filter),
                                     static_cast<DeviceMode>(start->deviceMode), backlog_),
      nullptr, latestStart_};
  return nullptr;
}

void Session::stopRoutingService() {
  if (!waitingStart_ && currentRouting().device == nullptr) return;
  log<row::sessionStops>();
  giveUpStart("a stop request came");
  endRouting();
}

void Session::endForGood() {
  connection_->callOnQueue([session = weak_from_this()] {
    if (const auto self = session.lock()) self->endNow();
  });
}

void Session::endNow() {
  const Routing routing = currentRouting();
  const auto owner = owner_.lock();
  if (owner != nullptr && (waitingStart_ || routing.device != nullptr)) {
    const std::uint64_t device =
        waitingStart_ ? waitingStart_->entryID : routing.device->description().registryEntryID;
    owner->endedRoutings().note(
        pid_, device,
        routerError(IOReturn::Aborted, "the session was ended with wlhid sessions end", device));
  }
  giveUpStart("the session was ended with wlhid sessions end");
  endRouting();
  sayFarewell();
}

void Session::end() {
  giveUpStart("the connection has ended");
  endRouting();
  measureBacklog();  // what was unsent is gone with the connection
  if (const std::uint64_t leftOut = lines_.takeLeftOut())
    logUnlimited<row::sessionLinesLeftOut>(leftOut);
  logUnlimited<row::sessionEnds>();
}

Session::Routing Session::currentRouting() const {
  const std::lock_guard lock(mutex_);
  return routing_;
}

void Session::endRouting() {
  const Routing ended = currentRouting();
  if (ended.device == nullptr) return;
  ended.device->remove(ended.subscription);
  {
    // Counted at the same time as the routing ends, so that the total never decreases.
    const std::lock_guard lock(mutex_);
    lostBefore_ += ended.subscription->lost();
    routing_ = {};
  }
  noteChange();
}

void Session::noteChange() const {
  if (const auto owner = owner_.lock()) owner->sessionChanged();
}

SessionStatus Session::status(std::uint64_t* returnLostInAll) const {
  Routing routing;
  std::uint64_t lostBefore = 0;
  {
    const std::lock_guard lock(mutex_);
    routing = routing_;
    lostBefore = lostBefore_;
  }
  SessionStatus status;
  status.pid = pid_;
  status.uid = uid_;
  status.number = number_;
  if (caller_ != nullptr) {
    status.program = caller_->program();
    status.unit = caller_->unit();
  }
  if (returnLostInAll != nullptr) *returnLostInAll = lostBefore;
  if (routing.device == nullptr) return status;
  status.device = routing.device->description().registryEntryID;
  status.deviceName = routing.device->description().name;
  status.exclusive = routing.subscription->mode() == DeviceMode::Exclusive;
  status.delivered = routing.subscription->delivered();
  status.lost = routing.subscription->lost();
  if (returnLostInAll != nullptr) *returnLostInAll += status.lost;
  return status;
}

std::optional<ReportArrivals> Session::arrivalsOf(std::uint64_t registryEntryID) const {
  const Routing routing = currentRouting();
  if (routing.device == nullptr) return std::nullopt;
  if (routing.device->description().registryEntryID != registryEntryID) return std::nullopt;
  return routing.subscription->arrivals();
}

std::uint64_t Session::lost() const {
  const std::lock_guard lock(mutex_);
  return lostBefore_ + (routing_.subscription == nullptr ? 0 : routing_.subscription->lost());
}

}  // namespace router
