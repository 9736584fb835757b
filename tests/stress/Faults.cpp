// SPDX-License-Identifier: Apache-2.0

// Faults: each system call of a whole session fails once, in each possible way, in the application,
// in the job daemon and in the router. Whatever fails: every request ends once, every installation
// leaves the old or the new state, nothing leaks, and one more try works.
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <map>

#include "WLHIDAccess/WLHIDEventRouterConstants.h"
#include "platform/services/Grant.h"
#include "platform/services/JobFile.h"
#include "platform/xpc/NSXPCListener.h"
#include "router/RouterStatus.h"
#include "tests/stress/Census.h"
#include "tests/stress/FaultyCalls.h"
#include "tests/stress/Stress.h"
#include "tests/stress/System.h"
#include "tests/stress/WatchedClient.h"
#include "tests/stress/WatchedConnections.h"

namespace stress {
namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Totals {
  std::uint64_t sessions = 0;
  std::uint64_t hits = 0;
  std::uint64_t failedInstalls = 0;
  std::uint64_t inputAtOnce = 0;
  std::uint64_t recoveries = 0;  ///< sessions that needed the stop and start
};

class Session {
 public:
  Session(FaultPlan& plan, const ConnectionCounts& counts, Findings& findings, Totals& totals)
      : plan_(plan), counts_(counts), findings_(findings), totals_(totals) {}

  /// Returns how many calls could have failed that way.
  std::uint64_t run(Role role, Fault fault, std::uint64_t failing);

 private:
  void install();
  void uninstall();
  void route(const WatchedClient& watched);
  void recover(const WatchedClient& watched);
  void demandOldOrNew(const char* when);
  void demandNoCrash();
  void demand(bool holds, const std::string& what) { findings_.demand(holds, title_ + what); }

  FaultPlan& plan_;
  const ConnectionCounts& counts_;
  Findings& findings_;
  Totals& totals_;
  std::string title_;
  const std::string image_ = contents(WLHID_FAULTY_IMAGE);
  const System* system_ = nullptr;
  std::uint64_t device_ = 0;
};

/// A removal keeps its connection to the daemon for a bless that may follow. The next authorization
/// closes it if that daemon has ended; without one, what a session leaves would depend on how many
/// of its removals stood alone.
Census ownCensus() {
  static_cast<void>(platform::newAuthorization());
  return Census::of(::getpid());
}

/// The executable exists whole or not at all; so does the job file.
void Session::demandOldOrNew(const char* when) {
  const platform::SystemRoot& root = system_->root();
  const fs::path tool = root.helperTool(WLHIDEventRouterLabel);
  const fs::path job = root.jobFile(WLHIDEventRouterLabel);
  if (fs::exists(tool)) demand(contents(tool) == image_, std::string("half an executable ") + when);
  if (!fs::exists(job)) return;
  const std::string text = contents(job);
  const std::vector<std::uint8_t> bytes(text.begin(), text.end());
  demand(platform::parseJobFile(bytes, WLHIDEventRouterLabel, nullptr).has_value(),
         std::string("half a job file ") + when);
}

void Session::install() {
  int answers = 0;
  bool success = false;
  WLHIDEventRouterClient::installWithPrompt_completionHandler(
      nullptr, [&](bool done, const std::shared_ptr<platform::NSError>& error) {
        ++answers;
        success = done;
        demand(done == (error == nullptr), "an installation's outcome and error disagree");
      });
  demand(answers == 1, "an installation is answered once");
  if (!success) ++totals_.failedInstalls;
  demandOldOrNew("after an installation");
  if (success)
    demand(fs::exists(system_->root().helperTool(WLHIDEventRouterLabel)), "nothing was installed");
}

void Session::uninstall() {
  int answers = 0;
  bool success = false;
  WLHIDEventRouterClient::uninstallWithPrompt_completionHandler(
      nullptr, [&](bool done, const std::shared_ptr<platform::NSError>&) {
        ++answers;
        success = done;
      });
  demand(answers == 1, "a removal is answered once");
  demandOldOrNew("after a removal");
  if (success)
    demand(!fs::exists(system_->root().jobFile(WLHIDEventRouterLabel)), "a job was left");
}

/// Starts, and gives the session time to receive input or to meet its fault.
void Session::route(const WatchedClient& watched) {
  constexpr std::chrono::milliseconds kAfterHit{300};
  watched.client->setStarted(true);
  std::optional<std::chrono::steady_clock::time_point> hit;
  const bool over = eventually([&] {
    const Heard heard = watched.listener->heard();
    if (heard.reports > 0 || heard.errors > 0) return true;
    if (heard.status == WLHIDEventRouterClientStatusRouterUnavailable) return true;
    const auto now = std::chrono::steady_clock::now();
    if (!hit && plan_.wasHit()) hit = now;
    return hit && now - *hit > kAfterHit;
  });
  demand(over, "a start without a fault brought nothing");
  if (watched.listener->heard().reports > 0) ++totals_.inputAtOnce;
}

void Session::recover(const WatchedClient& watched) {
  const std::uint64_t reports = watched.listener->heard().reports;
  watched.client->setStarted(false);
  system_->install();
  demand(watched.startAndReceive(), "after the fault, one more try brings input");
  if (reports == 0) ++totals_.recoveries;
  watched.client->setStarted(false);
  demand(eventually([&] {
           const auto status = router::readRouterStatus(system_->root());
           return status && status->sessions.empty();
         }),
         "a session is left over in the router");
  system_->uninstall();
}

/// The daemon logs how its jobs end.
void Session::demandNoCrash() {
  const std::string log = contents(system_->root().systemLog());
  for (const char* signal : {"ended by signal 6", "ended by signal 11"})
    demand(log.find(signal) == std::string::npos, std::string("the router ") + signal);
}

std::uint64_t Session::run(Role role, Fault fault, std::uint64_t failing) {
  title_ = std::string(kRoleNames.at(static_cast<std::size_t>(role))) + " " +
           std::string(kFaultNames.at(static_cast<std::size_t>(fault))) + " " +
           std::to_string(failing) + ": ";
  const Census before = ownCensus();
  std::uint64_t calls = 0;
  {
    const System system;
    system_ = &system;
    device_ = system.addRecording("qemu-usb-mouse.hid", 10);
    const WatchedClient watched(device_);
    plan_.arm(role, fault, failing);
    install();
    route(watched);
    install();  // over a running router
    watched.client->setStarted(false);
    uninstall();
    plan_.disarm();
    calls = plan_.calls();
    if (plan_.wasHit()) {
      ++totals_.hits;
      title_ += "(" + plan_.nameOfHit() + ") ";
    }
    recover(watched);
    demandNoCrash();
  }
  demand(eventually([] { return platform::liveConnectionCount() == 0; }), "connections stay");
  demand(counts_.startsSettled() == counts_.startsSent, "a start request was not settled once");
  Census after = ownCensus();
  // The first session creates what is created once.
  const bool isAsBefore = eventually([&] {
    after = Census::of(::getpid());
    return totals_.sessions == 0 ||
           (after.descriptors <= before.descriptors && after.threads <= before.threads);
  });
  demand(isAsBefore, "left over: " + after.text() + " instead of " + before.text());
  ++totals_.sessions;
  return calls;
}

/// The directory for the systems, with the plan's file above them.
class Ground {
 public:
  Ground() {
    std::string pattern = (fs::temp_directory_path() / "wlhid-stress-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
      throw std::runtime_error("cannot make a temporary directory");
    path_ = pattern;
    ::setenv("TMPDIR", path_.c_str(), 1);
    ::setenv("WLHID_JOBD", WLHID_FAULTY_DAEMON, 1);
  }
  Ground(const Ground&) = delete;
  Ground& operator=(const Ground&) = delete;
  ~Ground() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  [[nodiscard]] const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

void fail(const Work& work, Findings& findings) {
  static ConnectionCounts counts;
  const Ground ground;
  FaultPlan plan(ground.path());
  const LogCounts logs;
  watchConnections(counts, findings);
  Totals totals;
  Session session(plan, counts, findings, totals);
  static_cast<void>(session.run(Role::Application, Fault::Interrupted, 0));  // warms up

  std::uint64_t possible = 0;
  std::uint64_t turn = 0;
  // A long run takes all of them; a shorter one takes every n-th, from a varying start.
  const std::uint64_t whole = 1000;
  const std::uint64_t stride =
      whole / std::max<std::uint64_t>(work.times(whole, isSanitized() ? 20 : 200), 1);
  for (const Role role : {Role::Application, Role::Daemon, Role::Router}) {
    for (std::size_t fault = 0; fault < kFaultNames.size(); ++fault) {
      const std::uint64_t calls = session.run(role, static_cast<Fault>(fault), 0);
      findings.figure("calls of the " + std::string(kRoleNames.at(static_cast<std::size_t>(role))) +
                          " that can meet " + std::string(kFaultNames.at(fault)),
                      calls);
      possible += calls;
      for (std::uint64_t failing = 1; failing <= calls; ++failing) {
        if (turn++ % stride == 0)
          static_cast<void>(session.run(role, static_cast<Fault>(fault), failing));
      }
    }
  }
  findings.figure("fault points", possible);
  findings.figure("sessions", totals.sessions);
  findings.figure("faults met", totals.hits);
  findings.figure("installations that failed, whole", totals.failedInstalls);
  findings.figure("sessions with input despite the fault", totals.inputAtOnce);
  findings.figure("sessions that needed one stop and start", totals.recoveries);
  findings.figure("start requests sent", counts.startsSent);
  findings.figure("start requests answered", counts.startsAnswered);
  findings.figure("start requests failed", counts.startsFailed);
}

}  // namespace
}  // namespace stress

int main(int argc, char** argv) {
  return stress::run(argc, argv, stress::fail);
}
