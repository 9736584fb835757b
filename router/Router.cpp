// SPDX-License-Identifier: Apache-2.0

#include "router/Router.h"

#include <sys/stat.h>

#include <map>
#include <thread>
#include <utility>

#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSURL.h"
#include "platform/kit/KQIOObject.h"
#include "platform/services/RootFiles.h"
#include "router/EndedRoutings.h"
#include "router/Quotas.h"
#include "router/RoutedDevices.h"
#include "router/RouterStatus.h"
#include "router/Session.h"
#include "router/SessionRegistry.h"
#include "router/control/RouterControl.h"
#include "router/directory/DeviceDirectory.h"

namespace router {

namespace {

using Clock = std::chrono::steady_clock;
using platform::LogLine;

constexpr std::chrono::seconds kFarewellLimit{5};
/// While there are sessions. Revoked grants and losses become known after this long at the latest.
constexpr std::chrono::seconds kReviewInterval{1};
constexpr std::string_view kStartSelector =
    "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:";

/// Whether clients of that user are served. Where there is no authority to ask, only the root's
/// owner and the superuser are.
bool isAdmitted(const platform::SystemRoot& root, const RoutingAuthority* authority, uid_t user) {
  if (authority != nullptr || user == 0) return true;
  struct stat status {};
  return ::fstat(root.directory(), &status) == 0 && status.st_uid == user;
}

/// The root, open, so that it stays the same directory as long as the router lives.
platform::SystemRoot opened(const platform::SystemRoot& root) {
  if (root.directory() >= 0) return root;
  return {platform::openOwnRoot(root), root.path()};
}

std::shared_ptr<const DeviceSources> sourcesOf(const RouterOptions& options,
                                               const platform::SystemRoot& root) {
  if (options.sources != nullptr) return options.sources;
  return std::make_shared<const DeviceSources>(deviceSources(root, options.limits));
}

}  // namespace

std::shared_ptr<platform::NSXPCInterface> routerInterface() {
  using namespace platform;  // NOLINT: eleven class names
  const NSClassSet all = {&NSData::classObject(),
                          &NSArray::classObject(),
                          &NSMutableArray::classObject(),
                          &NSNumber::classObject(),
                          &NSError::classObject(),
                          &NSString::classObject(),
                          &NSDate::classObject(),
                          &NSURL::classObject(),
                          &NSDictionary::classObject(),
                          &KQIOObject::classObject(),
                          &KQHIDDeviceElementValue::classObject()};
  auto interface = NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol());
  constexpr std::size_t kTagDictionary = 2;
  constexpr std::size_t kTypeDictionary = 3;
  for (const std::size_t argument : {kTagDictionary, kTypeDictionary}) {
    interface->setClasses_forSelector_argumentIndex_ofReply(all, kStartSelector, argument, false);
  }
  return interface;
}

std::shared_ptr<platform::NSXPCInterface> routerClientInterface() {
  return platform::NSXPCInterface::interfaceWithProtocol(
      WLHIDEventRouterClientProtocol::protocol());
}

/// Everything that outlives a call: sessions and connections refer to it weakly.
class Router::Core final : public platform::NSXPCListenerDelegate,
                           public SessionOwner,
                           public std::enable_shared_from_this<Core> {
 public:
  Core(const platform::SystemRoot& root, std::shared_ptr<platform::NSXPCListener> listener,
       RouterOptions options)
      : root_(opened(root)),
        listener_(std::move(listener)),
        options_(std::move(options)),
        backlog_(std::make_shared<Backlog>(options_.limits)),
        startLine_(std::make_shared<StartLine>(options_.limits)),
        sessions_(
            std::make_shared<SessionRegistry>(options_.limits, options_.authority != nullptr)),
        devices_(std::make_shared<RoutedDevices>(sourcesOf(options_, root_),
                                                 options_.limits.devices, options_.log)),
        endedRoutings_(options_.limits),
        lines_(options_.limits) {
    if (options_.authority == nullptr) statusFile_.emplace(root_);
  }

  void resume();
  void stop();
  [[nodiscard]] int idleDescriptor() const { return idle_.descriptor(); }

  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<platform::NSXPCListener>& listener,
      const std::shared_ptr<platform::NSXPCConnection>& connection) override;

  StartLine& startLine() override { return *startLine_; }
  std::shared_ptr<RoutedDevice> deviceWithID(std::uint64_t registryEntryID) override {
    return devices_->withID(registryEntryID);
  }
  EndedRoutings& endedRoutings() override { return endedRoutings_; }
  void sessionChanged() override { sessions_->noteChange(); }
  void log(uid_t user, const platform::LogLine& line) override;

 private:
  void offerServices();
  bool keep(const std::shared_ptr<Session>& session);
  void sessionEnded(const std::shared_ptr<Session>& session);
  void logLeftOut();

  void runHousekeeping();
  void noteIfIdle();
  void reportLosses();
  void writeStatus();

  const platform::SystemRoot root_;
  const std::shared_ptr<platform::NSXPCListener> listener_;
  const RouterOptions options_;
  const std::shared_ptr<Backlog> backlog_;
  const std::shared_ptr<StartLine> startLine_;
  const std::shared_ptr<SessionRegistry> sessions_;
  std::shared_ptr<RouterControl> control_;      // null if not offered
  std::shared_ptr<DeviceDirectory> directory_;  // null if not offered
  const std::shared_ptr<RoutedDevices> devices_;
  EndedRoutings endedRoutings_;
  LineQuota lines_;
  StopSignal idle_;

  // Used by the housekeeping thread only.
  std::map<std::uint64_t, std::uint64_t> reportedLosses_;  // by session number
  Clock::time_point lossesReportedAt_{};
  /// Not where users share the router: each is shown its own sessions only, by the control service.
  std::optional<RouterStatusFile> statusFile_;
  bool statusFailed_ = false;
  std::thread housekeeping_;
};

void Router::Core::resume() {
  const std::size_t devices = devices_->list().size();
  options_.log(LogLine::of<row::begins>(WLHID_VERSION, root_.path().string(), devices));
  sessions_->begin();
  startLine_->begin();
  housekeeping_ = std::thread([this] { runHousekeeping(); });
  listener_->setDelegate(std::weak_ptr<platform::NSXPCListenerDelegate>(shared_from_this()));
  listener_->resume();
  offerServices();
}

void Router::Core::offerServices() {
  ServiceParts parts;
  parts.sessions = sessions_;
  parts.devices = devices_;
  parts.startLine = startLine_;
  parts.authority = options_.authority;
  parts.admits = [root = root_, authority = options_.authority](uid_t user) {
    return isAdmitted(root, authority.get(), user);
  };
  parts.log = [core = weak_from_this()](uid_t user, const LogLine& line) {
    if (const auto self = core.lock()) self->log(user, line);
  };
  parts.limits = options_.limits;
  if (options_.directory != nullptr) {
    directory_ = std::make_shared<DeviceDirectory>(options_.directory, parts);
    directory_->resume();
  }
  if (options_.control == nullptr) return;
  control_ = std::make_shared<RouterControl>(options_.control, parts);
  control_->resume();
}

void Router::Core::stop() {
  if (!sessions_->stop()) return;
  listener_->invalidate();
  if (control_ != nullptr) control_->stop();
  if (directory_ != nullptr) directory_->stop();
  for (const auto& session : sessions_->all()) session->sayFarewell();
  if (const std::size_t left = sessions_->waitUntilEmpty(kFarewellLimit))
    options_.log(LogLine::of<row::sessionsLeft>(left));
  startLine_->end();
  if (!housekeeping_.joinable()) return;
  housekeeping_.join();
  if (statusFile_) statusFile_->remove();
  logLeftOut();
  options_.log(LogLine::of<row::ends>());
}

bool Router::Core::listener_shouldAcceptNewConnection(
    const std::shared_ptr<platform::NSXPCListener>& /*listener*/,
    const std::shared_ptr<platform::NSXPCConnection>& connection) {
  const uid_t user = connection->effectiveUserIdentifier();
  const auto& authority = options_.authority;
  const auto caller = authority == nullptr ? nullptr : authority->callerOf(*connection);
  if (!isAdmitted(root_, authority.get(), user) || (authority != nullptr && caller == nullptr)) {
    log(user, LogLine::of<row::refused>(connection->processIdentifier(), user));
    return false;
  }
  const auto session = std::make_shared<Session>(sessions_->takeNumber(), connection,
                                                 weak_from_this(), backlog_, caller);
  connection->setExportedInterface(routerInterface());
  connection->setExportedObject<WLHIDEventRouterProtocol>(session);
  connection->setRemoteObjectInterface(routerClientInterface());
  // An accepted connection ends once, by invalidation; both handlers are set so that no kind of end
  // can leave the session behind.
  const auto ended = [core = weak_from_this(), session = std::weak_ptr<Session>(session)] {
    const auto owner = core.lock();
    const auto over = session.lock();
    if (owner != nullptr && over != nullptr) owner->sessionEnded(over);
  };
  connection->setInterruptionHandler(ended);
  connection->setInvalidationHandler(ended);
  // Only now, because from here on stop() may end it.
  if (!keep(session)) return false;
  log(user, LogLine::of<row::sessionBegins>(session->number(), session->process(), user));
  connection->resume();
  return true;
}

/// False while closing (the client's connection ends, and its next one reaches the next router) and
/// when there are too many sessions.
bool Router::Core::keep(const std::shared_ptr<Session>& session) {
  using Entry = SessionRegistry::Entry;
  const RouterLimits& limits = options_.limits;
  const Entry entry = sessions_->keep(session);
  if (entry == Entry::TooMany || entry == Entry::TooManyOfUser) {
    const bool isUsers = entry == Entry::TooManyOfUser;
    log(session->user(), LogLine::of<row::tooManyConnections>(
                             session->user(), isUsers ? limits.sessionsPerUser : limits.sessions));
  }
  return entry == Entry::Kept;
}

void Router::Core::sessionEnded(const std::shared_ptr<Session>& session) {
  session->end();
  sessions_->remove(session);
}

void Router::Core::log(uid_t user, const platform::LogLine& line) {
  std::uint64_t leftOut = 0;
  if (!lines_.admits(user, Clock::now(), &leftOut)) return;
  if (leftOut > 0) options_.log(LogLine::of<row::linesLeftOut>(leftOut, user));
  options_.log(line);
}

void Router::Core::logLeftOut() {
  for (const auto& [user, lines] : lines_.takeLeftOut(Clock::now()))
    options_.log(LogLine::of<row::linesLeftOut>(lines, user));
}

/// The housekeeping thread: reviews permissions and maintains the status file, losses and idleness,
/// so that no thread that serves a client waits for a disk.
void Router::Core::runHousekeeping() {
  while (sessions_->waitForChange(kReviewInterval, options_.idleLimit)) {
    if (options_.authority != nullptr) options_.authority->review();
    for (const auto& session : sessions_->all()) session->measureBacklog();
    reportLosses();
    logLeftOut();
    noteIfIdle();
    writeStatus();
  }
}

void Router::Core::noteIfIdle() {
  if (options_.authority != nullptr && options_.authority->hasMemories())
    return sessions_->begin();  // the time without sessions counts from when they are gone
  if (!sessions_->closeIfUnused(options_.idleLimit)) return;
  options_.log(LogLine::of<row::idle>());
  idle_.raise();
}

/// Logs one line for each session that has lost reports since its last one, at most once a second.
void Router::Core::reportLosses() {
  const auto now = Clock::now();
  if (now < lossesReportedAt_ + kReviewInterval) return;
  std::map<std::uint64_t, std::uint64_t> losses;
  for (const auto& session : sessions_->all()) {
    const std::uint64_t number = session->number();
    const std::uint64_t lost = session->lost();
    losses[number] = lost;
    if (lost == reportedLosses_[number]) continue;
    log(session->user(),
        LogLine::of<row::sessionTooSlow>(number, session->process(), session->user(),
                                         lost - reportedLosses_[number], lost));
    lossesReportedAt_ = now;
    sessions_->noteChange();
  }
  reportedLosses_ = std::move(losses);
}

void Router::Core::writeStatus() {
  if (!sessions_->takeChange() || !statusFile_) return;
  try {
    statusFile_->write(sessions_->status(std::nullopt));
    statusFailed_ = false;
  } catch (const std::exception& error) {
    if (!std::exchange(statusFailed_, true)) options_.log(LogLine::of<row::noStatus>(error.what()));
  }
}

Router::Router(const platform::SystemRoot& root, std::shared_ptr<platform::NSXPCListener> listener,
               RouterOptions options)
    : core_(std::make_shared<Core>(root, std::move(listener), std::move(options))) {}

Router::~Router() {
  core_->stop();
}

void Router::resume() {
  core_->resume();
}
void Router::stop() {
  core_->stop();
}
int Router::idleDescriptor() const {
  return core_->idleDescriptor();
}

}  // namespace router
