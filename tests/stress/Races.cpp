// SPDX-License-Identifier: Apache-2.0

// Races: four threads do at random everything that can be done to a handful of clients, while the
// router does what routers do. Built with ThreadSanitizer it also reveals data races.
#include <time.h>
#include <unistd.h>

#include <array>
#include <thread>
#include <vector>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/foundation/ForwardingFoundationProvider.h"
#include "platform/scripted/HelperImage.h"
#include "platform/services/ServiceManagement.h"
#include "platform/xpc/Pacing.h"
#include "tests/stress/Census.h"
#include "tests/stress/RaceRouter.h"
#include "tests/stress/Stress.h"
#include "tests/stress/System.h"
#include "tests/stress/WatchedClient.h"
#include "tests/stress/WatchedConnections.h"

namespace stress {
namespace {

constexpr std::size_t kThreads = 4;
constexpr std::size_t kClients = 4;

Findings* allFindings = nullptr;  // for delegates, which may be called until the process ends

// ---- The platform: real connections, an installation that is a flag

class FlagServices final : public platform::ServicesProvider {
 public:
  std::shared_ptr<platform::NSDictionary> jobCopyDictionary(
      std::string_view, const std::shared_ptr<platform::NSString>&) override {
    if (!installed_) return nullptr;
    const auto arguments = platform::NSArray::arrayWithObjects({platform::str("/installed")});
    return platform::NSDictionary::dictionaryWithEntries(
        {{platform::str("ProgramArguments"), arguments}});
  }
  bool jobRemove(std::string_view, const std::shared_ptr<platform::NSString>&,
                 const platform::AuthorizationRef&, bool,
                 std::shared_ptr<platform::NSError>*) override {
    installed_ = false;
    return true;
  }
  bool jobBless(std::string_view, const std::shared_ptr<platform::NSString>&,
                const platform::AuthorizationRef&, std::shared_ptr<platform::NSError>*) override {
    installed_ = true;
    return true;
  }
  platform::OSStatus authorizationCreate(const platform::AuthorizationRights*,
                                         const platform::AuthorizationEnvironment*,
                                         platform::AuthorizationFlags,
                                         platform::AuthorizationRef* returnAuthorization) override {
    static char any = 0;
    *returnAuthorization = reinterpret_cast<platform::AuthorizationRef>(&any);
    return platform::errAuthorizationSuccess;
  }

 private:
  std::atomic<bool> installed_{true};
};

class ImageFoundation final : public platform::ForwardingFoundationProvider {
 public:
  std::shared_ptr<platform::NSData> dataWithContentsOfFile(
      const std::shared_ptr<platform::NSString>&) override {
    return image_;
  }
  std::shared_ptr<platform::NSString> mainBundlePath() override { return platform::str("/bundle"); }
  void log(std::string_view) override {}

 private:
  const std::shared_ptr<platform::NSData> image_ = platform::NSData::dataWithBytes(
      platform::helperImageWithInfoPlist(platform::infoPlistWithVersion("1")));
};

// ---- Delegates

/// Sometimes calls back into its client. Must not be called, nor be in a call, once it is
/// destroyed.
class RaceDelegate final : public WLHIDEventRouterClientDelegate {
 public:
  RaceDelegate() = default;
  RaceDelegate(const RaceDelegate&) = delete;
  RaceDelegate& operator=(const RaceDelegate&) = delete;
  ~RaceDelegate() override {
    allFindings->demand(calls_ == 0, "a delegate lives to the end of each call");
    isAlive_ = false;
  }
  void hidEventRouterClient_clientStatusChangedTo(
      const std::shared_ptr<WLHIDEventRouterClient>& client,
      WLHIDEventRouterClientStatus status) override {
    const Call call(*this);
    const std::uint64_t turn = turns_.fetch_add(1);
    if (turn % 32 == 7) client->setStarted(status != WLHIDEventRouterClientStatusRouting);
    if (turn % 64 == 9) client->setDelegate(nullptr);
  }
  void hidEventRouterClient_handleError(const std::shared_ptr<WLHIDEventRouterClient>& client,
                                        const std::shared_ptr<platform::NSError>&) override {
    const Call call(*this);
    if (turns_.fetch_add(1) % 4 == 0) client->setStarted(false);
  }
  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>&,
      std::uint32_t) override {
    const Call call(*this);
    allFindings->demand(!isAfterInvalidation(), "no input follows an invalidation");
  }

 private:
  struct Call {
    explicit Call(RaceDelegate& delegate) : delegate_(delegate) {
      allFindings->demand(delegate_.isAlive_, "no delegate is called that is gone");
      delegate_.calls_.fetch_add(1);
    }
    ~Call() { delegate_.calls_.fetch_sub(1); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

   private:
    RaceDelegate& delegate_;
  };

  std::atomic<bool> isAlive_{true};
  std::atomic<int> calls_{0};
  std::atomic<std::uint64_t> turns_{0};
};

// ---- Clients that threads share

class Slot {
 public:
  [[nodiscard]] std::shared_ptr<WLHIDEventRouterClient> client() const {
    const std::lock_guard lock(mutex_);
    return client_;
  }
  /// Releases the client for a new one; what it held is released after the lock.
  void renew() {
    auto client =
        WLHIDEventRouterClient::initWithRegistryEntryID_deviceMode_tagDictionary_typeDictionary(
            1, 0, nullptr, nullptr);
    const std::lock_guard lock(mutex_);
    client_.swap(client);
  }
  void changeDelegate(bool toNone) {
    auto delegate = toNone ? nullptr : std::make_shared<RaceDelegate>();
    if (delegate) {
      client()->setDelegate(delegate);
    } else {
      client()->setDelegate(nullptr);
    }
    const std::lock_guard lock(mutex_);
    delegate_.swap(delegate);
  }
  /// The last reference to the delegate may go while its client calls it.
  void releaseDelegate() {
    std::shared_ptr<RaceDelegate> delegate;
    const std::lock_guard lock(mutex_);
    delegate_.swap(delegate);
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<WLHIDEventRouterClient> client_;
  std::shared_ptr<RaceDelegate> delegate_;
};

using Slots = std::array<Slot, kClients>;

void postInstallationStatusChanged() {
  platform::NSNotificationCenter::defaultCenter()->postNotificationName_object(
      platform::str(WLHIDEventRouterClientInstallationStatusChanged), nullptr);
}

void install() {
  WLHIDEventRouterClient::installWithPrompt_completionHandler(nullptr, {});
}

/// Sometimes lets a moment pass, so that answers meet what comes after them.
void passMoment(Random& random) {
  constexpr std::uint64_t kLongest = 1'000'000;
  const timespec moment{0, static_cast<long>(random() % kLongest)};
  ::nanosleep(&moment, nullptr);
}

void doOneThing(Slots& slots, RaceRouter& router, Random& random) {
  Slot& slot = slots[random() % slots.size()];
  // Otherwise the ends of so many short connections would be reported a second later, to nobody.
  platform::xpc::forgetShortLives();
  switch (random() % 20) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 4:
    case 5:
      return slot.client()->setStarted(true);
    case 6:
    case 7:
      return slot.client()->setStarted(false);
    case 8:
      return postInstallationStatusChanged();
    case 9:
    case 10:
      return install();
    case 11:
      return WLHIDEventRouterClient::uninstallWithPrompt_completionHandler(nullptr, {});
    case 12:
      return router.killOne(random);
    case 13:
      return router.endOne(random);
    case 14:
    case 15:
      return router.settleOne(random);
    case 16:
      return router.deliver(random);
    case 17:
      return slot.changeDelegate(random() % 4 == 0);
    case 18:
      return slot.releaseDelegate();
    default:
      return slot.renew();
  }
}

// ---- What must hold once everything has stopped

/// With a calm router, one stop and start brings input to every client, on one session each; a stop
/// ends them all, and nothing is left over.
void demandSettled(Slots& slots, RaceRouter& router, const ConnectionCounts& counts,
                   Findings& findings) {
  router.setTemper(RaceRouter::Temper::Calm);
  router.settleAll();
  install();
  std::array<std::shared_ptr<Listener>, kClients> listeners;
  for (std::size_t i = 0; i < kClients; ++i) {
    listeners[i] = std::make_shared<Listener>();
    const auto client = slots[i].client();
    client->setStarted(false);
    client->setDelegate(listeners[i]);
    client->setStarted(true);
  }
  for (std::size_t i = 0; i < kClients; ++i) {
    findings.demand(listeners[i]->waitUntil([](const Heard& heard) {
      return heard.status == WLHIDEventRouterClientStatusRouting && heard.reports > 0;
    }),
                    "a client that is wanted started routes and has input");
  }
  findings.demand(
      eventually([&] { return router.routing() == kClients && router.connections() == kClients; }),
      "each started client has one session");
  for (Slot& slot : slots) slot.client()->setStarted(false);
  findings.demand(
      eventually([&] { return router.connections() == 0 && platform::liveConnectionCount() == 0; }),
      "nothing is left of stopped clients");
  findings.demandEqual("start requests settled", counts.startsSettled(), counts.startsSent);
  for (Slot& slot : slots) slot.client()->setDelegate(nullptr);
}

void race(RaceRouter& router, const ConnectionCounts& counts, const Work& work,
          Findings& findings) {
  constexpr std::uint64_t kEach = 1250;
  const std::uint64_t rounds = work.times(1'000'000, 20'000) / (kEach * kThreads);
  Slots slots;
  for (Slot& slot : slots) slot.renew();
  std::random_device seed;
  for (std::uint64_t round = 0; round < rounds; ++round) {
    router.setTemper(RaceRouter::Temper::Moody);
    // Alternating: connections that are closed before they are open, and ones that last longer.
    const std::uint64_t seldom = round % 2 == 0 ? 16 : 1;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
      threads.emplace_back([&slots, &router, seldom, number = seed()] {
        Random random(number);
        for (std::uint64_t step = 0; step < kEach; ++step) {
          doOneThing(slots, router, random);
          if (random() % seldom == 0) passMoment(random);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    demandSettled(slots, router, counts, findings);
  }
  findings.figure("races, operations from 4 threads", rounds * kEach * kThreads);
  findings.figure("races, connections made", counts.made);
  findings.figure("races, start requests sent", counts.startsSent);
  findings.figure("races, start requests answered", counts.startsAnswered);
  findings.figure("races, start requests failed", counts.startsFailed);
  findings.figure("races, sessions killed", router.killed());
  findings.figure("races, interruptions", counts.interruptions);
  findings.figure("races, invalidations", counts.invalidations);
}

void toggle(RaceRouter& router, const ConnectionCounts& counts, Findings& findings) {
  constexpr std::uint64_t kToggles = 10'000;
  router.setTemper(RaceRouter::Temper::Calm);
  install();
  const WatchedClient watched(1);
  std::vector<std::thread> threads;
  std::random_device seed;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&watched, number = seed()] {
      Random random(number);
      for (std::uint64_t step = 0; step < kToggles / kThreads; ++step)
        watched.client->setStarted(random() % 2 == 0);
    });
  }
  for (std::thread& thread : threads) thread.join();
  watched.client->setStarted(true);
  findings.demand(eventually([&] { return router.routing() == 1 && router.connections() == 1; }),
                  "toggles settle in one session");
  const std::uint64_t made = counts.made;
  for (std::uint32_t i = 0; i < 100; ++i) {
    const std::uint64_t before = watched.listener->heard().reports;
    router.deliverToAll(3);
    findings.demand(
        watched.listener->waitUntil([=](const Heard& heard) { return heard.reports > before; }),
        "the session is the client's");
  }
  findings.demandEqual("connections made after the toggles have settled", counts.made - made, 0);
  findings.demand(watched.client->clientStatus() == WLHIDEventRouterClientStatusRouting,
                  "a toggled client that is wanted started routes");
  watched.client->setStarted(false);
  findings.demand(
      eventually([&] { return router.connections() == 0 && platform::liveConnectionCount() == 0; }),
      "nothing is left of the toggled client");
  findings.figure("toggles", kToggles);
}

// ---- Routers that never accept a client

double processorSeconds(pid_t process) {
  clockid_t clock{};
  timespec spent{};
  if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &spent) != 0) return 0;
  return static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) / 1e9;
}

/// Limits an order of magnitude above what is needed: a client that spins makes thousands of
/// connections in that time and uses all of the processor.
constexpr std::uint64_t kMaxConnections = 150;
constexpr double kMaxProcessorShare = 0.3;

void watchForSpinning(const std::string& what, const Work& work, pid_t daemon,
                      const std::function<std::uint64_t()>& connections, Findings& findings) {
  const std::chrono::seconds length(work.isShort() ? 3 : 10);
  const double before = processorSeconds(::getpid());
  const double daemonBefore = daemon > 0 ? processorSeconds(daemon) : 0;
  const std::uint64_t connectionsBefore = connections();
  // Nothing is waited for here: the time is the measure.
  static_cast<void>(eventually([] { return false; }, length));
  const double share =
      (processorSeconds(::getpid()) - before) / static_cast<double>(length.count());
  const std::uint64_t made = connections() - connectionsBefore;
  findings.figure(what + ", seconds watched", static_cast<std::uint64_t>(length.count()));
  findings.figure(what + ", connections", made);
  findings.figure(what + ", share of a processor", share);
  if (daemon > 0) {
    findings.figure(what + ", the daemon's share", (processorSeconds(daemon) - daemonBefore) /
                                                       static_cast<double>(length.count()));
  }
  findings.demand(made <= kMaxConnections, what + ": connections are bounded");
  // A sanitizer's processor time says nothing about ours.
  findings.demand(isSanitized() || share <= kMaxProcessorShare,
                  what + ": processor time is bounded");
}

void refuse(RaceRouter& router, const Work& work, Findings& findings) {
  install();
  router.setTemper(RaceRouter::Temper::Unfriendly);
  {
    const WatchedClient watched(1);
    watched.client->setStarted(true);
    watchForSpinning(
        "a router that refuses", work, -1, [&] { return router.arrivals(); }, findings);
    router.setTemper(RaceRouter::Temper::Calm);
    findings.demand(
        watched.listener->waitUntil([](const Heard& heard) { return heard.reports > 0; }),
        "a client that was refused gets in once it is let in");
    watched.client->setStarted(false);
  }
  findings.demand(eventually([] { return platform::liveConnectionCount() == 0; }),
                  "nothing is left of the refused client");
}

/// With a real daemon and a router that dies. Finally a good one takes its place.
void die(const std::string& what, const char* image, const Work& work, Findings& findings) {
  const LogCounts logs;
  const System system;
  const std::uint64_t device = system.addRecording("qemu-usb-mouse.hid", 10);
  system.install();
  system.bless(image);
  const std::int64_t startsBefore = system.job().starts;
  const WatchedClient watched(device);
  watched.client->setStarted(true);
  watchForSpinning(
      what, work, system.daemon(), [&] { return 1 + logs.interruptions() + logs.invalidations(); },
      findings);
  const std::int64_t starts = system.job().starts - startsBefore;
  findings.figure(what + ", starts of the router", static_cast<std::uint64_t>(starts));
  findings.demand(starts > 0 && starts <= static_cast<std::int64_t>(kMaxConnections),
                  what + ": starts of the router are bounded");
  system.install();
  watched.client->setStarted(false);
  findings.demand(watched.startAndReceive(), what + ": a router that works brings input");
  watched.client->setStarted(false);
}

void raceAll(const Work& work, Findings& findings) {
  allFindings = &findings;
  die("a router that dies at start", WLHID_DYING_IMAGE, work, findings);
  die("a router that dies on connection", WLHID_DYING_LATER_IMAGE, work, findings);

  static ConnectionCounts counts;
  watchConnections(counts, findings);
  platform::foundationProvider().exchange(std::make_shared<ImageFoundation>());
  platform::servicesProvider().exchange(std::make_shared<FlagServices>());
  platform::KQLogger::setLogLevel(4);
  const auto router = RaceRouter::make();
  refuse(*router, work, findings);
  toggle(*router, counts, findings);
  race(*router, counts, work, findings);
}

}  // namespace
}  // namespace stress

int main(int argc, char** argv) {
  return stress::run(argc, argv, stress::raceAll);
}
