// SPDX-License-Identifier: Apache-2.0

// Failing allocations: each allocation of a client's life (creation, start, input, stop) fails
// once, and then several of them in one life. std::bad_alloc leaves the call that needed the
// memory, or costs one message or one connection; nothing leaks, nothing hangs, and one more try
// works.
//
// The lives run in processes that each go through many of them, so that one that dies is noticed
// and counted while the others continue.
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <new>
#include <string_view>

#include "platform/xpc/NSXPCListener.h"
#include "platform/xpc/Pacing.h"
#include "tests/stress/Allocations.h"
#include "tests/stress/Census.h"
#include "tests/stress/Stress.h"
#include "tests/stress/System.h"
#include "tests/stress/WatchedClient.h"

namespace stress {
namespace {

/// Which allocations fail: the `first`, and each `every`-th after it unless that is 0.
struct Plan {
  std::uint64_t first = 0;
  std::uint64_t every = 0;
};

/// What the process that runs the lives tells its parent; shared memory.
struct Report {
  std::atomic<std::uint64_t> begun{0};
  std::atomic<std::uint64_t> done{0};
  std::atomic<std::uint64_t> failures{0};
  std::atomic<std::uint64_t> surfaced{0};  ///< lives in which a call threw std::bad_alloc
  std::atomic<std::uint64_t> allocations{0};
  std::atomic<std::uint64_t> keptOnce{0};  ///< allocations that only the first of two lives kept
};

/// For calls that may throw std::bad_alloc to their caller; returns whether they did.
template <class Call>
bool throwsBadAlloc(const Call& call) {
  try {
    call();
    return false;
  } catch (const std::bad_alloc&) {
    return true;
  }
}

class Life {
 public:
  Life(std::uint64_t device, Report& report, Findings& findings)
      : device_(device), report_(report), findings_(findings) {}

  void live(const Plan& plan) {
    const std::string title =
        "allocation " + std::to_string(plan.first) +
        (plan.every == 0 ? "" : " and each " + std::to_string(plan.every) + "th");
    const auto listener = std::make_shared<Listener>();
    std::shared_ptr<WLHIDEventRouterClient> client;
    failAllocations(plan.first, plan.every);
    const bool surfaced = liveHarmed(client, listener);
    report_.allocations = allocationsSince();
    report_.failures.fetch_add(stopFailingAllocations());
    if (surfaced) report_.surfaced.fetch_add(1);
    if (client) recover(*client, listener, title);
    client.reset();
    findings_.demand(eventually([] { return platform::liveConnectionCount() == 0; }),
                     title + ": a connection is left over");
  }

 private:
  /// With failing allocations in all threads. Returns whether a call threw.
  bool liveHarmed(std::shared_ptr<WLHIDEventRouterClient>& client,
                  const std::shared_ptr<Listener>& listener) const {
    constexpr std::chrono::milliseconds kEnough{150};
    bool surfaced = throwsBadAlloc([&] {
      client =
          WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
              device_, 0, nullptr, nullptr);
      client->setDelegate(listener);
      client->setStarted(true);
    });
    if (!surfaced) {
      const Unharmed here;  // the waiting is not under test
      static_cast<void>(
          listener->waitUntil([](const Heard& heard) { return heard.reports >= 3; }, kEnough));
    }
    if (client && throwsBadAlloc([&] { client->setStarted(false); })) surfaced = true;
    return surfaced;
  }

  void recover(WLHIDEventRouterClient& client, const std::shared_ptr<Listener>& listener,
               const std::string& title) {
    const std::uint64_t routings = listener->heard().routings;
    client.setStarted(false);
    client.setDelegate(listener);
    // A client whose presence check failed considers the router missing until it is told otherwise.
    platform::NSNotificationCenter::defaultCenter()->postNotificationName_object(
        platform::str(WLHIDEventRouterClientInstallationStatusChanged), nullptr);
    client.setStarted(true);
    findings_.demand(listener->waitForRouting(routings + 1) && listener->waitForInput(),
                     title + ": one more try brings input");
    client.setStarted(false);
  }

  const std::uint64_t device_;
  Report& report_;
  Findings& findings_;
};

Report* sharedReport(int file) {
  void* const memory = ::mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("cannot map the report");
  return static_cast<Report*>(memory);
}

std::uint64_t number(const char* text) {
  return std::strtoull(text, nullptr, 10);
}

/// What the process holds when nothing is going on. Must not hold memory itself.
struct Held {
  std::uint64_t allocations = liveAllocations();
  Census census = Census::of(::getpid());

  [[nodiscard]] bool isMoreThan(const Held& other) const {
    return allocations > other.allocations || census.descriptors != other.census.descriptors ||
           census.threads != other.census.threads;
  }
  [[nodiscard]] std::string text() const {
    return std::to_string(allocations) + " allocations, " + census.text();
  }
};

/// Samples until no more is held than before, or the time is up.
Held heldAfter(const Held& before) {
  constexpr int kLooks = 500;
  platform::xpc::forgetShortLives();  // of connections that broke for lack of memory
  Held held;
  for (int i = 0; i < kLooks && held.isMoreThan(before); ++i, ::poll(nullptr, 0, 2)) held = Held();
  return held;
}

/// memory --lives ROOT DEVICE REPORT FIRST LAST STEP EVERY
int runLives(char** arguments) {
  platform::SystemRoot::setCurrent(platform::SystemRoot(arguments[2]));
  Report& report = *sharedReport(static_cast<int>(number(arguments[4])));
  const std::uint64_t last = number(arguments[6]);
  const std::uint64_t step = number(arguments[7]);
  const std::uint64_t every = number(arguments[8]);
  Findings findings;
  const LogCounts logs(4);
  Life life(number(arguments[3]), report, findings);
  for (int i = 0; i < 3; ++i) life.live({UINT64_MAX - 1, 0});  // what is created once
  Held before = heldAfter(Held());
  for (std::uint64_t first = number(arguments[5]); first <= last; first += step) {
    report.begun = first;
    life.live({first, every});
    Held after = heldAfter(before);
    if (after.isMoreThan(before)) {
      // Is this something created once and kept, or a leak? Repeating it tells.
      report.keptOnce.fetch_add(after.allocations - before.allocations);
      life.live({first, every});
      const Held again = heldAfter(after);
      findings.demand(!again.isMoreThan(after), "allocation " + std::to_string(first) + ": " +
                                                    again.text() + " instead of " + after.text());
      before = again;
    }
    report.done.fetch_add(1);
  }
  return findings.exitStatus();
}

/// Runs one process of lives; returns its exit status, or 128 + the signal that killed it.
int livesInProcess(const System& system, std::uint64_t device, int reportFile,
                   const std::array<std::uint64_t, 4>& range) {
  std::array<std::string, 9> texts{"/proc/self/exe",           "--lives",
                                   system.root().path(),       std::to_string(device),
                                   std::to_string(reportFile), std::to_string(range[0]),
                                   std::to_string(range[1]),   std::to_string(range[2]),
                                   std::to_string(range[3])};
  std::array<char*, 10> arguments{};
  for (std::size_t i = 0; i < texts.size(); ++i) arguments[i] = texts[i].data();
  pid_t process = -1;
  if (::posix_spawn(&process, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0)
    throw std::runtime_error("cannot start a process");
  int status = 0;
  ::waitpid(process, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void tryAll(const Work& work, Findings& findings) {
  const System system;
  const std::uint64_t device = system.addRecording("qemu-usb-mouse.hid", 10);
  system.install();
  const WatchedClient bystander(device);  // keeps the router running
  findings.demand(bystander.startAndReceive(), "the bystander starts");
  const int file = ::memfd_create("report", 0);
  if (file < 0 || ::ftruncate(file, sizeof(Report)) != 0)
    throw std::runtime_error("cannot make the report");
  Report& report = *sharedReport(file);

  findings.demand(livesInProcess(system, device, file, {UINT64_MAX - 2, UINT64_MAX - 2, 1, 0}) == 0,
                  "a life without a failure");
  const std::uint64_t count = report.allocations;
  findings.figure("allocations of one life", count);
  const std::uint64_t step = work.isShort() ? 10 : 1;
  std::uint64_t died = 0;
  for (const std::uint64_t every : {0, 100, 20, 5, 2, 1}) {
    for (std::uint64_t first = 1; first <= count;) {
      report.begun = first;
      const int status = livesInProcess(system, device, file, {first, count, step, every});
      if (status == 0) break;
      if (status < 128) {
        findings.demand(false, "lives with each " + std::to_string(every) + "th failing");
        break;
      }
      ++died;
      findings.demand(false, "allocation " + std::to_string(report.begun) + ", each " +
                                 std::to_string(every) + "th: ended by signal " +
                                 std::to_string(status - 128));
      first = report.begun + step;
    }
  }
  findings.figure("lives", report.done);
  findings.figure("allocations that failed", report.failures);
  findings.figure("lives in which a call threw", report.surfaced);
  findings.figure("allocations that were kept once, not again", report.keptOnce);
  findings.figure("processes that died", died);
  findings.demandEqual("the bystander's status changes", bystander.listener->heard().statusChanges,
                       2);
}

}  // namespace
}  // namespace stress

int main(int argc, char** argv) {
  if (argc == 9 && std::string_view(argv[1]) == "--lives") return stress::runLives(argv);
  return stress::run(argc, argv, stress::tryAll);
}
