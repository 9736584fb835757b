// SPDX-License-Identifier: Apache-2.0

// Streams of input: many fast devices at once, and a delegate that is far too slow for its device.
#include <poll.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <vector>

#include "platform/xpc/NSXPCListener.h"
#include "router/RouterStatus.h"
#include "tests/stress/Census.h"
#include "tests/stress/NumberedReports.h"
#include "tests/stress/Stress.h"
#include "tests/stress/System.h"

namespace stress {
namespace {

using std::chrono::seconds;

double processorSeconds(pid_t process) {
  clockid_t clock{};
  timespec spent{};
  if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &spent) != 0) return 0;
  return static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) / 1e9;
}

double percentile(const std::vector<double>& sorted, double share) {
  if (sorted.empty()) return 0;
  return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
}

struct Stream {
  Stream(const System& system, const Numbered& reports, Checker::Burden burden = {})
      : numbered(reports), checker(std::make_shared<Checker>(reports, std::move(burden))) {
    const std::string name = "numbered" + std::to_string(reports.device);
    id = system.addText(name, reports.text(), "1", /*repeat=*/false);
  }
  void start() {
    client =
        WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
            id, 0, nullptr, nullptr);
    client->setDelegate(checker);
    client->setStarted(true);
  }
  /// The device's end closes the connection; a client that asks again is told that it has gone.
  [[nodiscard]] bool waitForEnd(seconds limit) const {
    return checker->waitUntil([](const Checker::Counts& counts) { return counts.errors > 0; },
                              limit);
  }
  void stop() {
    client->setStarted(false);
    client.reset();
  }

  Numbered numbered;
  std::shared_ptr<Checker> checker;
  std::uint64_t id = 0;
  std::shared_ptr<WLHIDEventRouterClient> client;
};

void demandAll(const Stream& stream, Findings& findings) {
  const Checker::Counts counts = stream.checker->counts();
  const std::string whose = "device " + std::to_string(stream.numbered.device) + ", ";
  findings.demandEqual(whose + "reports", counts.reports, stream.numbered.count);
  findings.demandEqual(whose + "arrays of values", counts.valueArrays, stream.numbered.count);
  findings.demandEqual(whose + "reports missing", counts.missing, 0);
  findings.demandEqual(whose + "wrong", counts.wrong, 0);
}

// ---- Many fast devices

void fastDevices(const Work& work, Findings& findings) {
  constexpr std::uint32_t kDevices = 8;
  constexpr std::uint32_t kRate = 8000;
  const std::uint64_t length = work.times(60, 3);
  const System system;
  std::vector<Stream> streams;
  for (std::uint32_t device = 0; device < kDevices; ++device) {
    streams.emplace_back(system, Numbered{device, static_cast<std::uint32_t>(kRate * length), 2,
                                          1'000'000 / kRate, false});
  }
  system.install();
  const double spentBefore = processorSeconds(::getpid());
  const auto began = std::chrono::steady_clock::now();
  for (Stream& stream : streams) stream.start();
  for (const Stream& stream : streams)
    findings.demand(stream.waitForEnd(seconds(length) * 10 + kPatience), "a stream ends");
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  const double routerSpent = processorSeconds(system.router());
  const double spent = processorSeconds(::getpid()) - spentBefore;
  for (Stream& stream : streams) stream.stop();

  std::uint64_t delivered = 0;
  for (const Stream& stream : streams) {
    demandAll(stream, findings);
    delivered += stream.checker->counts().reports;
  }
  const auto hasCountedAll = [&] {
    const auto status = router::readRouterStatus(system.root());
    return status && status->sessions.empty();
  };
  findings.demand(eventually(hasCountedAll), "the router's sessions end");
  const auto status = router::readRouterStatus(system.root());
  findings.demandEqual("reports lost, as the router counts", status ? status->lost : 1, 0);
  findings.figure("fast devices, reports sent", std::uint64_t{kDevices} * kRate * length);
  findings.figure("fast devices, reports delivered", delivered);
  findings.figure("fast devices, seconds", took.count());
  findings.figure("fast devices, router's processor seconds", routerSpent);
  findings.figure("fast devices, application's processor seconds", spent);
}

// ---- A slow delegate

constexpr std::uint32_t kSlowRate = 1000;
constexpr std::uint32_t kOthers = 4;
/// In KiB: twice what the router keeps for a client that does not read (Subscription::kLossLimit).
constexpr std::uint64_t kGrowthLimit = 8 * 1024;

std::vector<Stream> otherClients(const System& system, std::uint32_t first, std::uint64_t length) {
  std::vector<Stream> others;
  for (std::uint32_t i = 0; i < kOthers; ++i) {
    others.emplace_back(system, Numbered{first + i, static_cast<std::uint32_t>(kSlowRate * length),
                                         2, 1'000'000 / kSlowRate, false});
  }
  return others;
}

void startAndWait(Stream& stream, Findings& findings) {
  stream.start();
  findings.demand(
      stream.checker->waitUntil([](const auto& counts) { return counts.isRouting; }, kPatience),
      "a client starts");
}

struct Memory {
  static Memory now(const System& system) {
    return {Census::of(system.router()).residentKiB, Census::of(::getpid()).residentKiB};
  }
  std::uint64_t routerKiB = 0;
  std::uint64_t ownKiB = 0;
};

/// What the other clients saw, and the resident memory when all five recordings were open and when
/// the fifth had sent everything: nothing is opened in between.
struct OthersResult {
  std::vector<double> lateness;  ///< of the other clients' reports, sorted
  Memory before;
  Memory after;
};

/// Lets the other clients run to their end.
OthersResult runOthers(const System& system, std::vector<Stream>& others, std::uint64_t length,
                       Findings& findings) {
  for (Stream& stream : others) startAndWait(stream, findings);
  OthersResult beside{{}, Memory::now(system), {}};
  std::vector<double>& lateness = beside.lateness;
  for (Stream& stream : others) {
    findings.demand(stream.waitForEnd(seconds(length) * 10 + kPatience), "another stream ends");
    stream.stop();
    demandAll(stream, findings);
    const auto late = stream.checker->lateness();
    lateness.insert(lateness.end(), late.begin(), late.end());
  }
  std::sort(lateness.begin(), lateness.end());
  return beside;
}

/// Runs the other clients next to a fifth one whose delegate is as quick as theirs, for comparison
/// with a slow one. There are two such runs, both before the slow one so that it cannot affect
/// them; they show how much two runs differ anyway.
OthersResult runOthersWithQuickClient(const System& system, Stream& quick,
                                      std::vector<Stream>& others, std::uint64_t length,
                                      Findings& findings) {
  startAndWait(quick, findings);
  OthersResult beside = runOthers(system, others, length, findings);
  const std::uint64_t count = quick.numbered.count;
  findings.demand(quick.checker->waitUntil(
                      [=](const auto& counts) { return counts.valueArrays >= count; }, kPatience),
                  "a quick fifth client receives all");
  beside.after = Memory::now(system);
  quick.stop();
  return beside;
}

std::uint64_t grown(std::uint64_t before, std::uint64_t after) {
  return after > before ? after - before : 0;
}

void print(const std::string& whom, const OthersResult& beside, Findings& findings) {
  const std::string head = "others beside " + whom;
  findings.figure(head + ", lateness p50, us", percentile(beside.lateness, 0.50));
  findings.figure(head + ", lateness p99, us", percentile(beside.lateness, 0.99));
  findings.figure(head + ", router grew, KiB",
                  grown(beside.before.routerKiB, beside.after.routerKiB));
  findings.figure(head + ", application grew, KiB",
                  grown(beside.before.ownKiB, beside.after.ownKiB));
}

/// The current counts of the one session that routes `device`: the router writes them when a
/// session comes or goes, so this starts one.
std::optional<router::SessionStatus> countsNow(const System& system, std::uint64_t device) {
  const auto visitor =
      WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
          /*registryEntryID=*/1, 0, nullptr, nullptr);
  visitor->setStarted(true);
  static_cast<void>(
      eventually([&] { return visitor->clientStatus() == WLHIDEventRouterClientStatusFailed; }));
  visitor->setStarted(false);
  const auto status = router::readRouterStatus(system.root());
  if (!status) return std::nullopt;
  for (const auto& session : status->sessions) {
    if (session.device == device) return session;
  }
  return std::nullopt;
}

void slowDelegate(const Work& work, Findings& findings) {
  const std::uint64_t length = work.times(60, 10);
  const System system;
  std::atomic<bool> isSlow{true};
  std::atomic<std::uint64_t> slowCalls{0};
  const auto fifth = [&](std::uint32_t device) {
    return Numbered{device, static_cast<std::uint32_t>(kSlowRate * length), 16,
                    1'000'000 / kSlowRate, /*stays=*/true};
  };
  Stream quick(system, fifth(100));
  Stream quickAgain(system, fifth(102));
  Stream slow(system, fifth(101), [&] {
    if (!isSlow) return;
    ++slowCalls;
    ::poll(nullptr, 0, 100);  // the delegate's work on a report
  });
  std::vector<Stream> first = otherClients(system, 0, length);
  std::vector<Stream> second = otherClients(system, 40, length);
  std::vector<Stream> beside = otherClients(system, 20, length);
  system.install();

  const OthersResult quickFirst = runOthersWithQuickClient(system, quick, first, length, findings);
  const OthersResult quickSecond =
      runOthersWithQuickClient(system, quickAgain, second, length, findings);
  startAndWait(slow, findings);
  OthersResult slowFifth = runOthers(system, beside, length, findings);

  // The device has sent everything when the delivered and the lost reports add up.
  std::optional<router::SessionStatus> counted;
  findings.demand(eventually([&] {
                    counted = countsNow(system, slow.id);
                    return counted && counted->delivered + counted->lost == slow.numbered.count;
                  }),
                  "delivered and lost add up to what was sent");
  if (!counted) return;
  slowFifth.after = Memory::now(system);
  isSlow = false;  // the delivered reports that still wait are taken now
  const std::uint64_t delivered = counted->delivered;
  findings.demand(
      slow.checker->waitUntil([=](const auto& counts) { return counts.valueArrays >= delivered; },
                              kPatience),
      "the slow client takes what was handed over");
  const Checker::Counts counts = slow.checker->counts();
  findings.demandEqual("slow delegate, reports received", counts.reports, delivered);
  findings.demandEqual("slow delegate, received and lost", counts.reports + counted->lost,
                       slow.numbered.count);
  findings.demandEqual("slow delegate, wrong", counts.wrong, 0);
  findings.demand(counted->lost > 0, "a delegate that is so slow loses reports");
  slow.stop();
  if (!isSanitized()) {
    findings.demand(grown(slowFifth.before.routerKiB, slowFifth.after.routerKiB) < kGrowthLimit &&
                        grown(slowFifth.before.ownKiB, slowFifth.after.ownKiB) < kGrowthLimit,
                    "a slow delegate costs no more memory than its backlog");
  }

  findings.figure("slow delegate, reports sent", std::uint64_t{slow.numbered.count});
  findings.figure("slow delegate, reports received", counts.reports);
  findings.figure("slow delegate, reports counted as lost", counted->lost);
  findings.figure("slow delegate, slow calls", slowCalls.load());
  print("a quick one", quickFirst, findings);
  print("another quick one", quickSecond, findings);
  print("the slow one", slowFifth, findings);
}

void stream(const Work& work, Findings& findings) {
  fastDevices(work, findings);
  slowDelegate(work, findings);
  findings.demand(eventually([] { return platform::liveConnectionCount() == 0; }),
                  "no connection is left");
}

}  // namespace
}  // namespace stress

int main(int argc, char** argv) {
  return stress::run(argc, argv, stress::stream);
}
