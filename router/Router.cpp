// SPDX-License-Identifier: Apache-2.0

#include "router/Router.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSURL.h"
#include "platform/kit/KQIOObject.h"
#include "platform/services/RootFiles.h"
#include "router/Quotas.h"
#include "router/RouterStatus.h"
#include "router/Session.h"

namespace router {

namespace {

using Clock = std::chrono::steady_clock;
using platform::LogLine;

constexpr std::chrono::seconds kFarewellLimit{5};
constexpr std::chrono::seconds kLossInterval{1};
constexpr std::string_view kStartSelector =
    "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:";

/// Whether clients of that user may have input routed. A user's own root is for that user and root;
/// on a system root the permissions of the endpoint decide.
bool isAdmitted(const platform::SystemRoot& root, uid_t user) {
  if (root.isSystem() || user == 0) return true;
  struct stat status {};
  return ::fstat(root.directory(), &status) == 0 && status.st_uid == user;
}

/// The root, open, so that it stays the same directory as long as the router lives.
platform::SystemRoot opened(const platform::SystemRoot& root) {
  if (root.directory() >= 0) return root;
  return {platform::openOwnRoot(root), root.path()};
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
        lines_(options_.limits) {
    if (options_.sources == nullptr) {
      options_.sources = std::make_shared<const std::vector<std::unique_ptr<DeviceSource>>>(
          deviceSources(root_, options_.limits));
    }
  }

  void resume();
  void stop();
  [[nodiscard]] int idleDescriptor() const { return idle_.descriptor(); }

  bool listener_shouldAcceptNewConnection(
      const std::shared_ptr<platform::NSXPCListener>& listener,
      const std::shared_ptr<platform::NSXPCConnection>& connection) override;

  StartLine& startLine() override { return *startLine_; }
  std::shared_ptr<RoutedDevice> deviceWithID(std::uint64_t registryEntryID) override;
  void noteRecordingEnded(pid_t process, std::uint64_t registryEntryID) override;
  bool takeRecordingEnded(pid_t process, std::uint64_t registryEntryID) override;
  void sessionChanged() override;
  void log(uid_t user, const platform::LogLine& line) override;

 private:
  /// A process that has been sent a recording to its end and is to be told.
  struct EndedRecording {
    pid_t process = -1;
    std::uint64_t device = 0;
    Clock::time_point at;
  };

  bool keep(const std::shared_ptr<Session>& session);
  void sessionEnded(const std::shared_ptr<Session>& session);
  [[nodiscard]] std::vector<std::shared_ptr<Session>> sessions() const;
  std::optional<DeviceDescription> describe(std::uint64_t registryEntryID);
  std::vector<std::shared_ptr<RoutedDevice>> takeUnusedDevices();
  std::size_t listSources(const std::function<void(DeviceDescription)>& take);
  void logLeftOut();

  void runHousekeeping();
  bool waitForWork();
  void noteIfIdle();
  void reportLosses();
  void writeStatus();

  const platform::SystemRoot root_;
  const std::shared_ptr<platform::NSXPCListener> listener_;
  RouterOptions options_;
  const std::shared_ptr<Backlog> backlog_;
  const std::shared_ptr<StartLine> startLine_;
  LineQuota lines_;
  StopSignal idle_;
  std::atomic<std::uint64_t> nextNumber_{1};

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::uint64_t, std::shared_ptr<Session>> sessions_;  // by number, so by age
  std::map<std::uint64_t, std::shared_ptr<RoutedDevice>> devices_;
  std::set<std::string> problems_;  // already logged
  std::deque<EndedRecording> endedRecordings_;
  std::uint64_t lostByEnded_ = 0;  // by sessions that have ended
  Clock::time_point emptySince_ = Clock::now();
  bool isClosed_ = false;  // accepts no more connections
  bool isStopped_ = false;
  bool hasNews_ = true;  // for the status file

  // Used by the housekeeping thread only.
  std::map<std::uint64_t, std::uint64_t> reportedLosses_;  // by session number
  Clock::time_point lossesReportedAt_{};
  RouterStatusFile statusFile_{root_};
  bool statusFailed_ = false;
  std::thread housekeeping_;
};

void Router::Core::resume() {
  const std::size_t devices = listSources([](const DeviceDescription&) {});
  options_.log(LogLine::of<row::begins>(WLHID_VERSION, root_.path().string(), devices));
  {
    const std::lock_guard lock(mutex_);
    emptySince_ = Clock::now();
  }
  startLine_->begin();
  housekeeping_ = std::thread([this] { runHousekeeping(); });
  listener_->setDelegate(std::weak_ptr<platform::NSXPCListenerDelegate>(shared_from_this()));
  listener_->resume();
}

void Router::Core::stop() {
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(isStopped_, true)) return;
    isClosed_ = true;
    changed_.notify_all();
  }
  listener_->invalidate();
  for (const auto& session : sessions()) session->sayFarewell();
  {
    std::unique_lock lock(mutex_);
    const bool ended = changed_.wait_until(lock, Clock::now() + kFarewellLimit,
                                           [this] { return sessions_.empty(); });
    if (!ended) {
      const std::size_t left = sessions_.size();
      lock.unlock();
      options_.log(LogLine::of<row::sessionsLeft>(left));
    }
  }
  startLine_->end();
  if (!housekeeping_.joinable()) return;
  housekeeping_.join();
  statusFile_.remove();
  logLeftOut();
  options_.log(LogLine::of<row::ends>());
}

bool Router::Core::listener_shouldAcceptNewConnection(
    const std::shared_ptr<platform::NSXPCListener>& /*listener*/,
    const std::shared_ptr<platform::NSXPCConnection>& connection) {
  const uid_t user = connection->effectiveUserIdentifier();
  const auto& authority = options_.authority;
  const auto caller = authority == nullptr ? nullptr : authority->callerOf(*connection);
  if (!isAdmitted(root_, user) || (authority != nullptr && caller == nullptr)) {
    log(user, LogLine::of<row::refused>(connection->processIdentifier(), user));
    return false;
  }
  const auto session = std::make_shared<Session>(nextNumber_.fetch_add(1), connection,
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
  std::unique_lock lock(mutex_);
  if (isClosed_) return false;
  const RouterLimits& limits = options_.limits;
  const auto ofUser = static_cast<std::size_t>(
      std::count_if(sessions_.begin(), sessions_.end(),
                    [&](const auto& each) { return each.second->user() == session->user(); }));
  if (sessions_.size() >= limits.sessions || ofUser >= limits.sessionsPerUser) {
    const bool isUsers = ofUser >= limits.sessionsPerUser;
    lock.unlock();
    log(session->user(), LogLine::of<row::tooManyConnections>(
                             session->user(), isUsers ? limits.sessionsPerUser : limits.sessions));
    return false;
  }
  sessions_.emplace(session->number(), session);
  hasNews_ = true;
  changed_.notify_all();
  return true;
}

void Router::Core::sessionEnded(const std::shared_ptr<Session>& session) {
  session->end();
  const std::uint64_t lost = session->lost();
  const std::lock_guard lock(mutex_);
  if (sessions_.erase(session->number()) == 0) return;
  lostByEnded_ += lost;
  if (sessions_.empty()) emptySince_ = Clock::now();
  hasNews_ = true;
  changed_.notify_all();
}

std::vector<std::shared_ptr<Session>> Router::Core::sessions() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<Session>> result;
  for (const auto& [number, session] : sessions_) result.push_back(session);
  return result;
}

void Router::Core::sessionChanged() {
  const std::lock_guard lock(mutex_);
  hasNews_ = true;
  changed_.notify_all();
}

std::shared_ptr<RoutedDevice> Router::Core::deviceWithID(std::uint64_t registryEntryID) {
  {
    const std::lock_guard lock(mutex_);
    const auto known = devices_.find(registryEntryID);
    if (known != devices_.end()) return known->second;
  }
  // Listed anew: a device may have been added since the router started.
  const auto description = describe(registryEntryID);
  if (!description) return nullptr;
  const auto unused = takeUnusedDevices();
  auto device = std::make_shared<RoutedDevice>(
      *description,
      [sources = options_.sources, registryEntryID]() -> std::unique_ptr<OpenDevice> {
        for (const auto& source : *sources) {
          if (auto opened = source->open(registryEntryID)) return opened;
        }
        return nullptr;
      },
      options_.log);
  const std::lock_guard lock(mutex_);
  return devices_.emplace(registryEntryID, std::move(device)).first->second;
}

/// The devices are to be destroyed without the lock.
std::vector<std::shared_ptr<RoutedDevice>> Router::Core::takeUnusedDevices() {
  const std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<RoutedDevice>> unused;
  if (devices_.size() < options_.limits.devices) return unused;
  for (auto device = devices_.begin(); device != devices_.end();) {
    const bool isUnused = device->second.use_count() == 1;
    if (isUnused) unused.push_back(std::move(device->second));
    device = isUnused ? devices_.erase(device) : std::next(device);
  }
  return unused;
}

std::optional<DeviceDescription> Router::Core::describe(std::uint64_t registryEntryID) {
  std::optional<DeviceDescription> found;
  listSources([&](DeviceDescription device) {
    if (device.registryEntryID == registryEntryID) found = std::move(device);
  });
  return found;
}

/// Returns the number of devices. Logs each problem when it first appears, not every time.
std::size_t Router::Core::listSources(const std::function<void(DeviceDescription)>& take) {
  std::vector<std::string> problems;
  std::size_t count = 0;
  for (const auto& source : *options_.sources) {
    for (DeviceDescription& device : source->list(&problems)) {
      take(std::move(device));
      ++count;
    }
  }
  std::set<std::string> known(problems.begin(), problems.end());
  {
    const std::lock_guard lock(mutex_);
    known.swap(problems_);
  }
  for (const std::string& problem : problems) {
    if (!known.contains(problem)) options_.log(LogLine::of<row::ignored>(problem));
  }
  return count;
}

void Router::Core::noteRecordingEnded(pid_t process, std::uint64_t registryEntryID) {
  const std::lock_guard lock(mutex_);
  if (endedRecordings_.size() >= options_.limits.sessions) endedRecordings_.pop_front();
  endedRecordings_.push_back({process, registryEntryID, Clock::now()});
}

bool Router::Core::takeRecordingEnded(pid_t process, std::uint64_t registryEntryID) {
  const std::lock_guard lock(mutex_);
  const auto known = Clock::now() - options_.limits.endedRecordingLifetime;
  std::erase_if(endedRecordings_, [&](const EndedRecording& each) { return each.at < known; });
  const auto ended = std::find_if(
      endedRecordings_.begin(), endedRecordings_.end(), [&](const EndedRecording& each) {
        return each.process == process && each.device == registryEntryID;
      });
  if (ended == endedRecordings_.end()) return false;
  endedRecordings_.erase(ended);
  return true;
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

/// The housekeeping thread: maintains the status file, losses and idleness, so that no thread that
/// serves a client waits for a disk.
void Router::Core::runHousekeeping() {
  while (waitForWork()) {
    for (const auto& session : sessions()) session->measureBacklog();
    reportLosses();
    logLeftOut();
    noteIfIdle();
    writeStatus();
  }
}

/// Waits until something has changed, the next check for losses is due or the router may be idle.
/// False once it is stopped and all sessions have ended.
bool Router::Core::waitForWork() {
  std::unique_lock lock(mutex_);
  const auto isOver = [this] { return isStopped_ && sessions_.empty(); };
  const auto until =
      sessions_.empty() ? emptySince_ + options_.idleLimit : Clock::now() + kLossInterval;
  if (idle_.isRaised()) {
    changed_.wait(lock, [&] { return hasNews_ || isOver(); });
  } else {
    changed_.wait_until(lock, until, [&] { return hasNews_ || isOver(); });
  }
  return !isOver();
}

void Router::Core::noteIfIdle() {
  {
    const std::lock_guard lock(mutex_);
    const bool isIdle = sessions_.empty() && Clock::now() >= emptySince_ + options_.idleLimit;
    if (!isIdle || isClosed_) return;
    isClosed_ = true;
  }
  options_.log(LogLine::of<row::idle>());
  idle_.raise();
}

/// Logs one line for each session that has lost reports since its last one, at most once a second.
void Router::Core::reportLosses() {
  const auto now = Clock::now();
  if (now < lossesReportedAt_ + kLossInterval) return;
  std::map<std::uint64_t, std::shared_ptr<Session>> current;
  {
    const std::lock_guard lock(mutex_);
    current = sessions_;
  }
  std::map<std::uint64_t, std::uint64_t> losses;
  for (const auto& [number, session] : current) {
    const std::uint64_t lost = session->lost();
    losses[number] = lost;
    if (lost == reportedLosses_[number]) continue;
    log(session->user(),
        LogLine::of<row::sessionTooSlow>(number, session->process(), session->user(),
                                         lost - reportedLosses_[number], lost));
    lossesReportedAt_ = now;
    const std::lock_guard lock(mutex_);
    hasNews_ = true;
  }
  reportedLosses_ = std::move(losses);
}

void Router::Core::writeStatus() {
  RouterStatus status;
  {
    const std::lock_guard lock(mutex_);
    if (!std::exchange(hasNews_, false)) return;
    status.lost = lostByEnded_;
  }
  status.pid = ::getpid();
  status.version = WLHID_VERSION;
  for (const auto& session : sessions()) {
    std::uint64_t lostInAll = 0;
    status.sessions.push_back(session->status(&lostInAll));
    status.lost += lostInAll;
  }
  try {
    statusFile_.write(status);
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
