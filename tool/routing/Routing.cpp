// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/Routing.h"

#include <poll.h>

#include <algorithm>
#include <optional>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/services/SystemRoot.h"
#include "tool/command/Command.h"
#include "tool/command/Invocation.h"
#include "tool/routing/ClientLogWatch.h"
#include "tool/routing/StartWatch.h"

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

/// How long to wait for the element values of the last report, as it is not known whether there are
/// any.
constexpr std::chrono::milliseconds kValuesGrace{250};

/// When to stop waiting for something.
class Deadline {
 public:
  static Deadline after(double seconds) {
    Deadline deadline;
    if (seconds > 0) {
      deadline.noLaterThan(
          std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)));
    }
    return deadline;
  }
  void noLaterThan(Clock::duration fromNow) { at_ = std::min(at_, Clock::now() + fromNow); }
  [[nodiscard]] bool passed() const { return Clock::now() >= at_; }
  /// For poll(): rounded up; -1 means no deadline.
  [[nodiscard]] int milliseconds() const {
    if (at_ == Clock::time_point::max()) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(at_ - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, 1'000'000));
  }

 private:
  Clock::time_point at_ = Clock::time_point::max();
};

/// The smaller of two times for poll().
int earlier(int one, int other) {
  if (one < 0 || other < 0) return std::max(one, other);
  return std::min(one, other);
}

/// Something to be done again and again.
class Repeated {
 public:
  explicit Repeated(std::chrono::milliseconds interval) : interval_(interval) {}
  [[nodiscard]] int milliseconds() const { return next_.milliseconds(); }
  /// Whether it is time; then the next interval begins.
  bool isDue() {
    if (!next_.passed()) return false;
    next_ = {};
    next_.noLaterThan(interval_);
    return true;
  }

 private:
  std::chrono::milliseconds interval_;
  Deadline next_ = [] {
    Deadline now;
    now.noLaterThan({});
    return now;
  }();
};

/// One device with its client.
class Client {
 public:
  explicit Client(const RoutedDevice& device) : session_(device.session) {
    client_ =
        WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
            device.registryEntryID, device.mode, device.tags, nullptr);
    client_->setDelegate(session_);
  }
  ~Client() {
    if (client_) client_->setDelegate(nullptr);
  }
  Client(Client&&) = default;
  Client& operator=(Client&&) = delete;

  void start() const { client_->setStarted(true); }
  void end(RouteEnd how) const { session_->end(client_, std::move(how)); }
  [[nodiscard]] std::function<void(const std::string&)> failing() const {
    return [session = session_, client = std::weak_ptr(client_)](const std::string& what) {
      session->end(client.lock(), {true, what});
    };
  }
  [[nodiscard]] RouteSession& session() const { return *session_; }

 private:
  std::shared_ptr<RouteSession> session_;
  std::shared_ptr<WLHIDEventRouterClient> client_;
};

using Clients = std::vector<Client>;

/// Waits for the end of all sessions, and ends those that have not ended by themselves.
class Waiting {
 public:
  Waiting(const Clients& clients, StopSignals& signals, const RoutingOptions& options)
      : clients_(clients),
        signals_(signals),
        options_(options),
        deadline_(Deadline::after(options.seconds)),
        start_(platform::SystemRoot::current()),
        tick_(options.interval),
        ask_(StartWatch::kInterval) {
    static_cast<void>(ask_.isDue());  // not before the router has had some time
  }

  void run() {
    while (isGoingOn()) {
      const bool interrupted = waitForEvent();
      if (interrupted) signals_.unblock();
      if (deadline_.passed()) endAtDeadline();
      if (interrupted || hasFailed() || !continues()) endAll({});
      for (const Client& each : clients_) each.session().drainWake();
      endIfUnanswerable();
    }
  }

 private:
  [[nodiscard]] bool isGoingOn() const {
    return !std::ranges::all_of(clients_, [](const auto& each) { return each.session().ended(); });
  }
  [[nodiscard]] bool isUnanswered() const {
    return !std::ranges::all_of(clients_, [](const auto& each) {
      return each.session().answered() || each.session().ended();
    });
  }
  [[nodiscard]] bool hasFailed() const {
    return std::ranges::any_of(clients_, [](const auto& each) {
      return each.session().ended() && each.session().howItEnded().failed;
    });
  }
  /// Whether a signal has arrived.
  bool waitForEvent() {
    std::vector<pollfd> events{{signals_.descriptor(), POLLIN, 0}};
    for (const Client& each : clients_) {
      if (each.session().lastReportSeen() && !isWaitingForValues_) {
        isWaitingForValues_ = true;
        deadline_.noLaterThan(kValuesGrace);
      }
      events.push_back({each.session().wakeDescriptor(), POLLIN, 0});
    }
    int patience = deadline_.milliseconds();
    if (options_.tick) patience = earlier(patience, tick_.milliseconds());
    if (isUnanswered()) patience = earlier(patience, ask_.milliseconds());
    ::poll(events.data(), events.size(), patience);
    return events[0].revents != 0;
  }
  bool continues() { return !options_.tick || !tick_.isDue() || options_.tick(); }
  void endAll(const RouteEnd& how) const {
    for (const Client& each : clients_) each.end(how);
  }
  /// A session that the time ends before it began is no success.
  void endAtDeadline() const {
    const std::string unanswered =
        "the router has not answered in the time of --seconds, so nothing was routed: it may be "
        "waiting for a person who was asked, or be unable to start; allow more time" +
        options_.advice;
    for (const Client& each : clients_)
      each.end(each.session().answered() ? RouteEnd{} : RouteEnd{true, unanswered});
  }
  /// Until the router answers the start requests, asks from time to time whether it ever will.
  void endIfUnanswerable() {
    if (!isUnanswered() || !ask_.isDue()) return;
    if (const auto problem = start_.ask()) endAll({true, *problem + options_.advice});
  }

  const Clients& clients_;
  StopSignals& signals_;
  const RoutingOptions& options_;
  Deadline deadline_;
  StartWatch start_;
  Repeated tick_;
  Repeated ask_;
  bool isWaitingForValues_ = false;
};

}  // namespace

void requireInstalledRouter() {
  if (WLHIDEventRouterClient::isInstalled()) return;
  throw Failure("the router is not installed, or not in this command's version (install it with: " +
                commandLine({"install"}) + ")");
}

std::string adviceOnStarting() {
  return " (see why: " + commandLine({"log"}) + "; what else is wrong: " + commandLine({"doctor"}) +
         ")";
}

RouteEnd routeUntilEnd(const std::vector<RoutedDevice>& devices, StopSignals& signals,
                       const RoutingOptions& options) {
  Clients clients;
  clients.reserve(devices.size());
  std::vector<std::function<void(const std::string&)>> failing;
  for (const RoutedDevice& device : devices)
    failing.push_back(clients.emplace_back(device).failing());
  const ClientLogWatch watch([failing](const std::string& what) {
    for (const auto& fail : failing) fail(what);
  });
  for (const Client& client : clients) client.start();
  Waiting(clients, signals, options).run();
  signals.unblock();
  clients.clear();
  for (const RoutedDevice& device : devices) {
    if (RouteEnd end = device.session->howItEnded(); end.failed) return end;
  }
  return {};
}

}  // namespace tool
