// SPDX-License-Identifier: Apache-2.0

// Life cycles: starts and stops, kills of the router and of the application, crashes at start.
// After each, everything is as it was before.
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>
#include <string_view>

#include "platform/xpc/NSXPCListener.h"
#include "router/RouterStatus.h"
#include "tests/stress/Allocations.h"
#include "tests/stress/Census.h"
#include "tests/stress/Stress.h"
#include "tests/stress/System.h"
#include "tests/stress/WatchedClient.h"
#include "tests/stress/WatchedConnections.h"

namespace stress {
namespace {

using Random = std::mt19937_64;

constexpr std::uint64_t kResidentGrowth = 4096;  // KiB; an allocator's slack, not a leak per cycle

/// Lets a random time pass, so that kills come at any moment.
void passMoment(Random& random, std::uint64_t mostMicroseconds) {
  const auto microseconds = static_cast<long>(random() % mostMicroseconds);
  const timespec moment{0, microseconds * 1000};
  ::ppoll(nullptr, 0, &moment, nullptr);
}

/// Everything that a system holds: this process, the daemon, the router, the files.
struct Holdings {
  Census application;
  std::uint64_t allocations = 0;
  Census daemon;
  Census router;
  std::size_t processes = 0;
  std::size_t files = 0;
  std::size_t fileNames = 0;  ///< a hash of them; the holdings themselves must not hold memory

  static Holdings of(const System& system, pid_t routerProcess) {
    Holdings found;
    found.application = Census::of(::getpid());
    found.allocations = liveAllocations();
    found.daemon = Census::of(system.daemon());
    found.router = Census::of(routerProcess);
    found.processes = processesOfRoot(system.root().path()).size();
    std::string names;
    for (const std::string& name : filesBelow(system.root().path())) {
      if (name.starts_with("var/log/system.log.")) continue;  // a full log was rotated
      ++found.files;
      names += name + "\n";
    }
    found.fileNames = std::hash<std::string>()(names);
    return found;
  }
  /// The minimum of several samples: what comes and goes (a report on its way, a file that is being
  /// replaced) is not a leak.
  static Holdings least(const std::function<Holdings()>& take) {
    constexpr int kLooks = 8;
    Holdings found = take();
    for (int i = 1; i < kLooks; ++i) {
      ::poll(nullptr, 0, 2);
      const Holdings next = take();
      found.application.lower(next.application);
      found.daemon.lower(next.daemon);
      found.router.lower(next.router);
      found.allocations = std::min(found.allocations, next.allocations);
      found.processes = std::min(found.processes, next.processes);
      if (next.files < found.files) found.fileNames = next.fileNames;
      found.files = std::min(found.files, next.files);
    }
    return found;
  }
  [[nodiscard]] bool sameCounts(const Holdings& other) const {
    return application.descriptors == other.application.descriptors &&
           application.threads == other.application.threads && allocations == other.allocations &&
           daemon.descriptors == other.daemon.descriptors &&
           daemon.threads == other.daemon.threads &&
           router.descriptors == other.router.descriptors &&
           router.threads == other.router.threads && processes == other.processes &&
           files == other.files && fileNames == other.fileNames;
  }
  /// The same once nothing comes and goes any more: other processes may still be busy with what was
  /// before.
  static Holdings settled(const std::function<Holdings()>& take) {
    constexpr int kSame = 10;
    constexpr int kTries = 500;
    Holdings found = least(take);
    for (int i = 0, same = 0; i < kTries && same < kSame; ++i) {
      const Holdings next = least(take);
      same = next.sameCounts(found) ? same + 1 : 0;
      found = next;
    }
    return found;
  }
  [[nodiscard]] std::string text() const {
    return "application " + application.text() + ", " + std::to_string(allocations) +
           " allocations; daemon " + daemon.text() + "; router " + router.text() + "; " +
           std::to_string(processes) + " processes, " + std::to_string(files) + " files";
  }
};

/// Demands that everything is as before; things may take a moment to settle. Nothing here may hold
/// memory while the samples are taken.
void demandSame(Findings& findings, const char* what, const Holdings& before,
                const std::function<Holdings()>& take) {
  constexpr int kTries = 200;
  Holdings after = Holdings::least(take);
  for (int i = 0; i < kTries && !after.sameCounts(before); ++i) after = Holdings::least(take);
  const std::string title = what;
  findings.figure(title + ", before", before.text());
  findings.figure(title + ", after", after.text());
  findings.demand(after.sameCounts(before), title + ": something was left over");
  if (isSanitized()) return;
  const auto grew = [](const Census& from, const Census& to) {
    return to.residentKiB > from.residentKiB + kResidentGrowth;
  };
  findings.demand(!grew(before.application, after.application) &&
                      !grew(before.daemon, after.daemon) && !grew(before.router, after.router),
                  title + ": a process has grown");
}

// ---- Starts and stops

void startAndStop(const WatchedClient& watched, std::uint64_t times, Findings& findings) {
  for (std::uint64_t i = 0; i < times; ++i) {
    if (!findings.demand(watched.startAndReceive(), "a start brings input")) return;
    watched.client->setStarted(false);
  }
}

void cycles(const System& system, std::uint64_t device, const Work& work, Findings& findings) {
  const std::uint64_t times = work.times(10'000, 200);
  // Keeps the router from being idle, and must not notice anything.
  const WatchedClient bystander(device);
  findings.demand(bystander.startAndReceive(), "the bystander starts");
  const pid_t router = system.router();
  const auto settle = [&] { return platform::liveConnectionCount() == 1; };
  const auto take = [&] { return Holdings::of(system, router); };

  Holdings before;
  {
    const WatchedClient watched(device);
    startAndStop(watched, 20, findings);
    findings.demand(eventually(settle), "the connections of the first cycles end");
    before = Holdings::settled(take);
    startAndStop(watched, times, findings);
    findings.demand(eventually(settle), "the connections end");
    demandSame(findings, "start and stop", before, take);
    findings.demandEqual("changes to Routing", watched.listener->heard().routings, times + 20);
    findings.demandEqual("errors", watched.listener->heard().errors, 0);
  }
  findings.demandEqual("the bystander's status changes", bystander.listener->heard().statusChanges,
                       2);
  findings.demand(bystander.listener->waitForInput(), "the bystander still has input");
  findings.figure("start and stop, cycles", times);
}

// ---- Kills of the router

struct RouterKills {
  std::uint64_t interrupted = 0;
  std::uint64_t waitedInBacklog = 0;
};

/// Whether the router has exactly the client's session, and it routes nothing.
bool hasIdleSession(const System& system) {
  const auto status = router::readRouterStatus(system.root());
  return status && status->isRunning && status->sessions.size() == 1 &&
         !status->sessions.front().device && status->sessions.front().pid == ::getpid();
}

/// Kills once at a random moment, perhaps during a start; then comes what the client does by
/// itself, which is nothing, and one stop and start.
void killRouterOnce(const System& system, const WatchedClient& watched,
                    const ConnectionCounts& counts, Random& random, std::uint64_t round,
                    bool mayMeetStart, RouterKills& kills, Findings& findings) {
  if (mayMeetStart && random() % 2 == 0) {
    watched.client->setStarted(false);
    watched.client->setStarted(true);
  }
  passMoment(random, 4000);
  const Process router(system.router());
  const std::uint64_t interruptions = counts.interruptions;
  router.kill();
  if (!findings.demand(router.waitForEnd(), "a killed router ends")) return;

  // Either the connection was open, and is interrupted, or it was still waiting to be accepted, and
  // the next router accepts it.
  constexpr std::chrono::milliseconds kGlance{50};  // the interruption may still be on its way
  const auto isServedByAnother = [&] {
    return watched.client->clientStatus() == WLHIDEventRouterClientStatusRouting &&
           system.job().processIdentifier > 0 &&
           system.job().processIdentifier != router.identifier() &&
           watched.listener->waitForInput(1, kGlance);
  };
  const auto isInterrupted = [&] { return counts.interruptions > interruptions; };
  findings.demand(eventually([&] { return isInterrupted() || isServedByAnother(); }),
                  "a client learns of its router's death or meets the next router");
  if (isInterrupted()) {
    ++kills.interrupted;
    const Heard heard = watched.listener->heard();
    if (round % 10 == 0) {
      findings.demand(eventually([&] { return hasIdleSession(system); }),
                      "an interrupted client keeps its connection and asks for nothing on it");
    }
    findings.demandEqual("status changes by an interruption",
                         watched.listener->heard().statusChanges, heard.statusChanges);
    findings.demandEqual("interruptions by one kill", counts.interruptions - interruptions, 1);
  } else {
    ++kills.waitedInBacklog;
  }
  watched.client->setStarted(false);
  findings.demand(watched.startAndReceive(), "one stop and start brings input back");
}

/// After a router has run for a second, its daemon forgets the earlier crashes. The device sends
/// fewer than 900 reports a second.
void waitForAGoodRun(const WatchedClient& watched, Findings& findings) {
  constexpr std::uint64_t kMoreThanASecond = 1100;
  findings.demand(watched.listener->waitForInput(kMoreThanASecond), "input goes on");
}

void killRouter(const System& system, std::uint64_t device, const ConnectionCounts& counts,
                const Work& work, Random& random, Findings& findings) {
  const std::uint64_t times = work.times(2'000, 40);
  RouterKills kills;
  const WatchedClient watched(device);
  const auto kill = [&](std::uint64_t count) {
    for (std::uint64_t round = 0; round < count; ++round) {
      if (round % 20 == 19) waitForAGoodRun(watched, findings);
      killRouterOnce(system, watched, counts, random, round, /*mayMeetStart=*/true, kills,
                     findings);
    }
    // The last connection lives long, after which the layer has no short lives to remember.
    waitForAGoodRun(watched, findings);
    killRouterOnce(system, watched, counts, random, 1, /*mayMeetStart=*/false, kills, findings);
    findings.demand(eventually([] { return platform::liveConnectionCount() == 1; }),
                    "the client's one connection is left");
  };
  const auto take = [&] { return Holdings::of(system, system.router()); };
  findings.demand(watched.startAndReceive(), "the client starts");
  kill(5);
  const Holdings before = Holdings::settled(take);
  kills = {};
  kill(times);
  demandSame(findings, "kills of the router", before, take);
  findings.figure("kills of the router", times + 1);
  findings.figure("kills of the router, connections interrupted", kills.interrupted);
  findings.figure("kills of the router, connections taken over by the next", kills.waitedInBacklog);
  findings.demandEqual("kills", kills.interrupted + kills.waitedInBacklog, times + 1);
  watched.client->setStarted(false);
}

// ---- Kills of the application

/// The application that is killed: clients come and go, with and without a stop.
[[noreturn]] void runApplication(char** arguments) {
  platform::SystemRoot::setCurrent(platform::SystemRoot(arguments[2]));
  const std::uint64_t device = std::strtoull(arguments[3], nullptr, 10);
  Random random(std::strtoull(arguments[4], nullptr, 10));
  for (;;) {
    const WatchedClient first(device);
    const WatchedClient second(device);
    first.client->setStarted(true);
    second.client->setStarted(true);
    const std::uint64_t enough = random() % 4;
    static_cast<void>(
        first.listener->waitUntil([=](const Heard& heard) { return heard.reports >= enough; },
                                  std::chrono::milliseconds(random() % 20)));
    if (random() % 2 == 0) first.client->setStarted(false);
  }
}

pid_t startApplication(const System& system, std::uint64_t device, std::uint64_t seed) {
  std::array<std::string, 5> texts{"/proc/self/exe", "--application", system.root().path(),
                                   std::to_string(device), std::to_string(seed)};
  std::array<char*, 6> arguments{};
  for (std::size_t i = 0; i < texts.size(); ++i) arguments[i] = texts[i].data();
  pid_t process = -1;
  if (::posix_spawn(&process, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0)
    throw std::runtime_error("cannot start an application");
  return process;
}

void killApplication(const System& system, std::uint64_t device, const Work& work, Random& random,
                     Findings& findings) {
  const std::uint64_t times = work.times(2'000, 40);
  const WatchedClient bystander(device);
  findings.demand(bystander.startAndReceive(), "the bystander starts");
  const pid_t router = system.router();
  const auto take = [&] { return Holdings::of(system, router); };
  const auto kill = [&](std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) {
      const pid_t process = startApplication(system, device, random());
      passMoment(random, 60'000);
      ::kill(process, SIGKILL);
      ::waitpid(process, nullptr, 0);
    }
  };
  const auto onlyBystander = [&] {
    const auto status = router::readRouterStatus(system.root());
    return status && status->sessions.size() == 1;
  };
  kill(5);
  findings.demand(eventually(onlyBystander), "the first killed applications' sessions end");
  const Holdings before = Holdings::settled(take);
  kill(times);
  findings.demand(eventually(onlyBystander), "the killed applications' sessions end");
  demandSame(findings, "kills of the application", before, take);
  findings.demandEqual("the bystander's status changes", bystander.listener->heard().statusChanges,
                       2);
  findings.demand(bystander.listener->waitForInput(), "the bystander still has input");
  findings.figure("kills of the application", times);
}

// ---- Crashes at start

void crashesAtStart(const System& system, std::uint64_t device, Findings& findings) {
  constexpr std::int64_t kCrashes = 25;  // the same as in CrashingRouter.cpp
  const WatchedClient watched(device);
  system.bless(std::filesystem::path(WLHID_CRASHING_IMAGE));
  const std::int64_t startsBefore = system.job().starts;
  const auto began = std::chrono::steady_clock::now();
  findings.demand(watched.startAndReceive(), "input comes once the router has stopped crashing");
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  findings.demandEqual("starts of a router that crashes 25 times",
                       static_cast<std::uint64_t>(system.job().starts - startsBefore),
                       kCrashes + 1);
  findings.demandEqual("status changes of its client", watched.listener->heard().statusChanges, 2);
  findings.figure("crashes at start", static_cast<std::uint64_t>(kCrashes));
  findings.figure("crashes at start, seconds until input", took.count());
  watched.client->setStarted(false);
  system.install();
}

void live(const Work& work, Findings& findings) {
  static ConnectionCounts counts;
  watchConnections(counts, findings);
  const LogCounts silent(4);
  Random random(std::random_device{}());
  const System system;
  const std::uint64_t device = system.addRecording("qemu-usb-mouse.hid", /*speed=*/10);
  system.install();
  cycles(system, device, work, findings);
  killRouter(system, device, counts, work, random, findings);
  killApplication(system, device, work, random, findings);
  crashesAtStart(system, device, findings);
}

}  // namespace
}  // namespace stress

int main(int argc, char** argv) {
  // Large buffers go back to the system at once, so that resident sizes show what is held.
  ::mallopt(M_MMAP_THRESHOLD, 1 << 20);
  if (argc == 5 && std::string_view(argv[1]) == "--application") stress::runApplication(argv);
  return stress::run(argc, argv, stress::live);
}
