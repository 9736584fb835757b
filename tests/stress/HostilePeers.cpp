// SPDX-License-Identifier: Apache-2.0

// Hostile clients against a router's end and a hostile router against a client's, each while
// another client continues to be served. Only the hostile connection may suffer, and memory is
// bounded.
//
// The bystander is a client that repeatedly sends a request, is answered and gets a report; an
// attack is over only after 50 of these rounds.
#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>

#include <atomic>
#include <random>
#include <sstream>

#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSURL.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/KQIOObject.h"
#include "tests/conformance/wire/WireJudge.h"
#include "tests/stress/Crowd.h"
#include "tests/stress/Stress.h"
#include "tests/support/TestRouter.h"
#include "tests/support/XPCPeers.h"

using namespace platform;
using conformance::bytesOfNotation;
using conformance::wireMessages;
using testsupport::Bytes;
using testsupport::EventLog;
using testsupport::RawPeer;
using testsupport::RouterSession;
using testsupport::TestRouter;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

constexpr std::uint64_t kRoundsPerAttack = 50;
constexpr std::size_t kMiB = std::size_t{1} << 20;
/// The backlog's limit, the copy made when it grows, and a frame on its way.
constexpr std::size_t kMaxMemory = 128 * kMiB;
constexpr std::size_t kMaxMemoryPerPeer = 64 << 10;
constexpr std::string_view kStart =
    "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:";

/// Uses a file that stays open, since an attack may leave no descriptor for it.
std::size_t residentBytes() {
  static const int statm = ::open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
  char text[128] = {};
  if (::pread(statm, text, sizeof text - 1, 0) <= 0)
    throw std::runtime_error("no /proc/self/statm");
  std::istringstream in(text);
  std::size_t total = 0;
  std::size_t resident = 0;
  in >> total >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

NSClassSet everyClass() {
  return {&NSData::classObject(),     &NSArray::classObject(),
          &NSNumber::classObject(),   &NSError::classObject(),
          &NSString::classObject(),   &NSDictionary::classObject(),
          &NSDate::classObject(),     &NSURL::classObject(),
          &KQIOObject::classObject(), &KQHIDDeviceElementValue::classObject()};
}

std::shared_ptr<NSXPCInterface> routerInterface() {
  auto interface = NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol());
  for (const std::size_t argument : {2U, 3U})
    interface->setClasses_forSelector_argumentIndex_ofReply(everyClass(), kStart, argument, false);
  return interface;
}

std::shared_ptr<NSXPCInterface> clientInterface() {
  auto interface =
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterClientProtocol::protocol());
  interface->setClasses_forSelector_argumentIndex_ofReply(
      {&NSMutableArray::classObject(), &KQHIDDeviceElementValue::classObject()},
      "receivedElementValues:", 0, false);
  return interface;
}

/// The router's end of one connection: answers each start and sends one report.
class Session final : public RouterSession {
 public:
  explicit Session(std::shared_ptr<NSXPCConnection> accepted) : RouterSession(std::move(accepted)) {
    connection->setExportedInterface(routerInterface());
  }

 private:
  void answer(const testsupport::StartRequest&, StartReply reply) override {
    reply(nullptr);
    const std::uint8_t report[] = {1, 2, 3, 4};
    client->receivedData_forReportID(NSData::dataWithBytes(report), 1);
  }
};

/// Room for the crowds of this program, which all belong to one user and partly never send a hello.
platform::NSXPCListenerLimits roomForCrowds() {
  platform::NSXPCListenerLimits limits;
  limits.helloWithin = std::chrono::hours(1);
  limits.withoutHelloOfUser = limits.connectionsOfUser = limits.connections = 100'000;
  return limits;
}

std::shared_ptr<TestRouter> listenAt(const std::string& path) {
  constexpr int kBacklog = 4096;
  return TestRouter::listen(
      path, kBacklog, [](const auto& connection) { return std::make_shared<Session>(connection); },
      roomForCrowds());
}

/// A client's end whose delegate calls `onData` for each report.
class Client final : public WLHIDEventRouterClientProtocol {
 public:
  static std::shared_ptr<Client> of(const std::string& service) {
    auto client = std::make_shared<Client>();
    client->connection_ = NSXPCConnection::initWithMachServiceName_options(str(service), 0);
    client->connection_->setExportedInterface(clientInterface());
    client->connection_->setRemoteObjectInterface(routerInterface());
    client->connection_->setExportedObject<WLHIDEventRouterClientProtocol>(client);
    client->connection_->setInterruptionHandler([log = client->log] { log->add("interruption"); });
    client->connection_->setInvalidationHandler([log = client->log] { log->add("invalidation"); });
    client->connection_->resume();
    return client;
  }
  void receivedData_forReportID(const std::shared_ptr<NSData>& data, std::uint32_t) override {
    if (data) bytes.fetch_add(data->length());
    if (data && onData) onData(*data);
    reports.fetch_add(1);
    reports.notify_all();
  }
  void receivedElementValues(const std::shared_ptr<NSArray>&) override { reports.fetch_add(1); }

  void start() {
    proxy()->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
        5, 0, nullptr, nullptr, [log = log](const std::shared_ptr<NSError>& error) {
          log->add("reply " + (error ? std::to_string(error->code()) : std::string("nil")));
        });
  }
  [[nodiscard]] std::shared_ptr<WLHIDEventRouterProtocol> proxy() const {
    return connection_->remoteObjectProxyWithErrorHandler<WLHIDEventRouterProtocol>(
        [log = log](const std::shared_ptr<NSError>& error) {
          log->add("error " + std::to_string(error->code()));
        });
  }
  [[nodiscard]] const std::shared_ptr<NSXPCConnection>& connection() const { return connection_; }

  const std::shared_ptr<EventLog> log = std::make_shared<EventLog>();
  std::function<void(const NSData&)> onData;  ///< set before anything can arrive
  std::atomic<std::uint64_t> reports{0};
  std::atomic<std::uint64_t> bytes{0};

 private:
  std::shared_ptr<NSXPCConnection> connection_;
};

/// The client that must continue to be served.
class Bystander {
 public:
  explicit Bystander(const std::string& service) : client_(Client::of(service)) {
    thread_ = std::jthread([this](const std::stop_token& stop) {
      while (!stop.stop_requested()) round();
    });
  }
  /// Whether another kRoundsPerAttack rounds are made.
  [[nodiscard]] bool goesOn() {
    const std::uint64_t wanted = rounds_.load() + kRoundsPerAttack;
    return stress::eventually([&] { return rounds_.load() >= wanted; });
  }
  [[nodiscard]] std::uint64_t rounds() const { return rounds_.load(); }
  [[nodiscard]] bool isWhole() const { return client_->log->count("invalidation") == 0; }

 private:
  void round() {
    const std::uint64_t before = client_->reports.load();
    client_->proxy()->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
        5, 0, nullptr, nullptr, {});
    if (stress::eventually([&] { return client_->reports.load() > before; })) rounds_.fetch_add(1);
  }

  const std::shared_ptr<Client> client_;
  std::atomic<std::uint64_t> rounds_{0};
  std::jthread thread_;
};

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes littleEndian(std::uint64_t value, std::size_t width) {
  Bytes bytes(width);
  for (std::size_t i = 0; i < width; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
  return bytes;
}

Bytes frame(std::uint8_t kind, std::uint8_t method, const Bytes& body) {
  return littleEndian(body.size(), 4) + Bytes{kind, 0, method, 0} + body;
}

const Bytes& clientHello() {
  return conformance::prelude(conformance::Receiver::Router);
}
const Bytes& routerHello() {
  return conformance::prelude(conformance::Receiver::Client);
}
const Bytes& stopMessage() {
  static const Bytes bytes = frame(2, 1, {});
  return bytes;
}

Bytes startRequest(std::uint64_t id, const Bytes& tags) {
  return frame(3, 0,
               littleEndian(id, 8) + littleEndian(5, 8) + littleEndian(0, 8) + tags + Bytes{0});
}

/// What the attacks share: two endpoints, one served by the layer, one by raw sockets.
class Field {
 public:
  explicit Field(stress::Findings& findings, const std::string& folder)
      : findings_(findings),
        path_(folder + "/router.sock"),
        hostilePath_(folder + "/hostile.sock"),
        router_(listenAt(path_)),
        hostile_(listenUnixSocket(hostilePath_, SOCK_STREAM | SOCK_CLOEXEC, 64, 0600)) {
    previous_ = serviceEndpoints().exchange(std::make_shared<Endpoints>(path_, hostilePath_));
    bystander_ = std::make_unique<Bystander>("com.quillmar.good");
    if (!bystander_->goesOn())
      throw std::runtime_error("the good client is not served even without an attack");
    start_ = residentBytes();
  }
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;
  ~Field() {
    bystander_.reset();
    router_->listener().invalidate();
    router_->dropSessions();
    ::close(hostile_);
    findings_.demand(testsupport::waitUntilNoConnectionIsLeft(),
                     "no connection is left at the end");
    serviceEndpoints().exchange(previous_);
  }

  /// Runs an attack next to the good client, which must be served while the attack lasts.
  template <class Attack>
  void attack(const std::string& name, const Attack& body) {
    body([&] {
      findings_.demand(bystander_->goesOn(), name + ": another client's delivery goes on");
      noteMemory();
    });
    noteMemory();
    findings_.figure("hostile peers, memory above the start, bytes, " + name,
                     std::uint64_t{std::exchange(mostHere_, 0)});
    const bool gone = stress::eventually([&] { return router_->sessionCount() == 1; });
    findings_.demand(gone, name + ": its sessions are gone; left over: " +
                               std::to_string(router_->sessionCount() - 1));
    ::malloc_trim(0);  // what the allocator keeps after one attack must not count for the next
    findings_.demand(bystander_->goesOn() && bystander_->isWhole(),
                     name + ": another client's delivery goes on afterwards");
    ++attacks_;
  }
  void noteMemory() {
    const std::size_t now = residentBytes();
    if (now > start_) mostHere_ = std::max(mostHere_, now - start_);
    most_ = std::max(most_, mostHere_);
  }
  [[nodiscard]] std::unique_ptr<RawPeer> peer() const {
    return std::make_unique<RawPeer>(RawPeer::connectTo(path_));
  }
  /// The raw end of a client that has connected to the hostile endpoint.
  [[nodiscard]] std::unique_ptr<RawPeer> acceptHostile() const {
    return std::make_unique<RawPeer>(::accept4(hostile_, nullptr, nullptr, SOCK_CLOEXEC));
  }
  [[nodiscard]] stress::Findings& findings() const { return findings_; }
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] TestRouter& router() const { return *router_; }
  [[nodiscard]] std::size_t mostMemory() const { return most_; }
  void forgetMemory() { start_ = residentBytes(); }
  [[nodiscard]] std::size_t startMemory() const { return start_; }
  [[nodiscard]] std::uint64_t attacks() const { return attacks_; }
  [[nodiscard]] std::uint64_t rounds() const { return bystander_->rounds(); }

 private:
  /// A name with "good" in it is the layer's own router, any other the hostile one.
  class Endpoints final : public ServiceEndpoints {
   public:
    Endpoints(std::string good, std::string hostile)
        : good_(std::move(good)), hostile_(std::move(hostile)) {}
    ServiceConnectResult connectToService(std::string_view service) override {
      const bool good = service.find("good") != std::string_view::npos;
      const int socket =
          connectUnixSocket(good ? good_ : hostile_, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK);
      using Outcome = ServiceConnectResult::Outcome;
      if (socket < 0) return {Outcome::TryAgain, -1, "busy"};
      return {Outcome::Connected, socket, ""};
    }

   private:
    const std::string good_;
    const std::string hostile_;
  };

  stress::Findings& findings_;
  const std::string path_;
  const std::string hostilePath_;
  const std::shared_ptr<TestRouter> router_;
  const int hostile_;
  std::shared_ptr<ServiceEndpoints> previous_;
  std::unique_ptr<Bystander> bystander_;
  std::size_t start_ = 0;
  std::size_t most_ = 0;
  std::size_t mostHere_ = 0;
  std::uint64_t attacks_ = 0;
};

// -------------------------------------------------------------------------------------------------
// Hostile clients

/// Each breach of the conformance set, on a connection of its own.
void breaches(Field& field) {
  std::uint64_t count = 0;
  field.attack("breaches", [&](const auto& meanwhile) {
    for (const auto& message : wireMessages()) {
      if (message.verdict != conformance::Verdict::Breach) continue;
      if (message.receiver != conformance::Receiver::Router &&
          message.receiver != conformance::Receiver::RouterFirst)
        continue;
      const auto peer = field.peer();
      static_cast<void>(peer->send(conformance::prelude(message.receiver) + message.bytes));
      field.findings().demand(peer->waitForEnd(), "a breach ends the connection: " + message.name);
      ++count;
    }
    meanwhile();
  });
  field.findings().figure("hostile clients, breaches that ended their connection", count);
}

/// Objects of classes that are not admitted, wherever an allow-list applies.
void wrongClasses(Field& field, std::uint64_t times) {
  field.attack("wrong classes", [&](const auto& meanwhile) {
    const auto peer = field.peer();
    peer->send(clientHello());
    peer->receiveFrame();
    std::uint64_t id = 0;
    for (std::uint64_t i = 0; i < times; ++i) {
      for (const char* const object : {"01 00", "02 00", "03 01", "09 00", "0a 00", "10",
                                       "0c 01 00 00 00 00 00 00 00 00 00", "0b 01 10 03 01"}) {
        peer->send(startRequest(++id, bytesOfNotation(object)));
        const Bytes answer = peer->receiveFrame();
        field.findings().demand(answer == frame(5, 0, littleEndian(id, 8)),
                                "a refused request is answered as dropped");
      }
    }
    meanwhile();
    peer->send(startRequest(++id, {0}));
    field.findings().demand(peer->receiveFrame() == frame(4, 0, littleEndian(id, 8) + Bytes{0}),
                            "and the connection lives");
    field.findings().figure("hostile clients, refused requests on one connection", id - 1);
  });
}

/// The beginnings of valid frames, and then silence.
void halfFrames(Field& field, std::size_t count) {
  field.attack("half frames", [&](const auto& meanwhile) {
    const Bytes whole = clientHello() + stopMessage() + startRequest(1, {0}) +
                        Bytes{0xF8, 0xFF, 0xFF, 0, 3, 0, 0, 0, 1, 0, 0};
    std::mt19937 random(20261121);
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (std::size_t i = 0; i < count; ++i) {
      peers.push_back(field.peer());
      const auto length = static_cast<std::ptrdiff_t>(random() % (whole.size() + 1));
      peers.back()->send(Bytes(whole.begin(), whole.begin() + length));
    }
    field.findings().demand(
        stress::eventually([&] { return field.router().sessionCount() > count; }),
        "half frames: all are connected");
    meanwhile();
    field.findings().figure("hostile clients, silent inside a frame at once", std::uint64_t{count});
  });
}

void aByteAtATime(Field& field, std::size_t requests) {
  field.attack("a byte at a time", [&](const auto& meanwhile) {
    const auto peer = field.peer();
    for (const std::uint8_t byte : clientHello()) peer->send({byte});
    peer->receiveFrame();
    for (std::uint64_t id = 1; id <= requests; ++id) {
      for (const std::uint8_t byte : startRequest(id, bytesOfNotation("0b 01 02 01 6b 09 00")))
        peer->send({byte});
      field.findings().demand(peer->receiveFrame() == frame(4, 0, littleEndian(id, 8) + Bytes{0}),
                              "a request that comes byte by byte is answered");
      peer->receiveFrame();  // the report
    }
    meanwhile();
    field.findings().figure("hostile clients, requests sent byte by byte", std::uint64_t{requests});
  });
}

/// Sends requests without end and reads nothing.
void neverReads(Field& field) {
  field.attack("never reads", [&](const auto& meanwhile) {
    const auto peer = field.peer();
    peer->send(clientHello());
    std::uint64_t id = 0;
    Bytes many;
    for (int i = 0; i < 1000; ++i) many = many + startRequest(++id, {0});
    std::uint64_t sent = 0;
    while (peer->send(many)) ++sent;  // until the router closes it
    meanwhile();
    field.findings().figure("hostile clients, requests until one that reads nothing was ended",
                            sent * 1000);
  });
}

/// Many keys that differ in their last bytes only, each an array.
void slowKeys(Field& field, std::uint64_t frames) {
  field.attack("slow keys", [&](const auto& meanwhile) {
    constexpr std::uint64_t kKeys = 50'000;
    Bytes tags{11, 0xFF};
    tags = tags + littleEndian(kKeys, 4);
    for (std::uint64_t i = 0; i < kKeys; ++i) {
      Bytes key{9, 1, 1, 100};
      key.resize(key.size() + 92, 0x78);
      for (int shift = 56; shift >= 0; shift -= 8)
        key.push_back(static_cast<std::uint8_t>(i >> shift));
      key.insert(key.end(), {3, 1});
      tags.insert(tags.end(), key.begin(), key.end());
    }
    const auto peer = field.peer();
    peer->send(clientHello());
    peer->receiveFrame();
    for (std::uint64_t id = 1; id <= frames; ++id) {
      peer->send(startRequest(id, tags));
      field.findings().demand(peer->receiveFrame() == frame(4, 0, littleEndian(id, 8) + Bytes{0}),
                              "a dictionary of slow keys is taken");
      peer->receiveFrame();
    }
    meanwhile();
    field.findings().figure("hostile clients, dictionaries of 50,000 arrays as keys", frames);
  });
}

/// Connects and disconnects at arbitrary points.
void churn(Field& field, std::uint64_t times) {
  field.attack("churn", [&](const auto& meanwhile) {
    const std::uint64_t before = field.router().arrivals();
    for (std::uint64_t i = 0; i < times; ++i) {
      const auto peer = field.peer();
      if (i % 3 != 0) peer->send(clientHello());
      if (i % 3 == 2) peer->send(startRequest(1, {0}));
    }
    field.findings().demand(
        stress::eventually([&] { return field.router().arrivals() == before + times; }),
        "churn: every one of them was accepted");
    meanwhile();
    field.findings().figure("hostile clients, connections that came and went", times);
  });
}

void crowd(Field& field, stress::Crowd& crowd, std::size_t wanted) {
  std::size_t connected = 0;
  std::size_t held = 0;
  std::size_t memory = 0;
  field.attack("a crowd", [&](const auto& meanwhile) {
    const std::size_t before = residentBytes();
    const std::size_t sessions = field.router().sessionCount();
    connected = crowd.gather(field.path(), wanted);
    // Those without a descriptor wait in the kernel's queue; everything has been served when
    // nothing more arrives for some seconds.
    constexpr std::chrono::seconds kQuiet{3};
    std::size_t seen = 0;
    do {
      seen = field.router().sessionCount();
    } while (seen - sessions < connected &&
             stress::eventually([&] { return field.router().sessionCount() > seen; }, kQuiet));
    held = field.router().sessionCount() - sessions;
    memory = residentBytes() - before;
    meanwhile();
    crowd.disperse();
  });
  auto& findings = field.findings();
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  findings.figure("hostile crowd, limit of descriptors (hard)", std::uint64_t{limit.rlim_max});
  findings.figure("hostile crowd, connected at once", std::uint64_t{connected});
  findings.figure(
      "hostile crowd, of them with a session, the others waiting in the listener's queue",
      std::uint64_t{held});
  findings.figure("hostile crowd, memory a session, bytes",
                  std::uint64_t{memory / std::max<std::size_t>(held, 1)});
  findings.demandEqual("connected at once", connected, wanted);
  findings.demand(kSanitized || memory <= held * kMaxMemoryPerPeer,
                  "a session costs at most 64 KiB");
  // A client that connects afterwards is served like any other.
  const auto late = Client::of("com.quillmar.good.late");
  late->start();
  findings.demand(late->log->waitFor("reply nil"),
                  "a client that connects after the crowd is served");
}

// -------------------------------------------------------------------------------------------------
// A hostile router

std::string freshHostile() {
  static int number = 0;
  return "com.quillmar.hostile" + std::to_string(number++);
}

/// Valid frames without end, to a delegate that reads every byte of them.
void flood(Field& field, std::size_t gigabytes) {
  field.attack("a flood", [&](const auto& meanwhile) {
    const auto client = Client::of(freshHostile());
    std::atomic<std::uint64_t> sum{0};
    client->onData = [&sum](const NSData& data) {
      std::uint64_t total = 0;
      for (const std::uint8_t byte : data.span()) total = total * 31 + byte;
      sum.fetch_add(total);
    };
    client->start();
    const auto router = field.acceptHostile();
    router->send(routerHello());
    const Bytes body = Bytes{1, 0xFF} + littleEndian(kMiB, 4) + Bytes(kMiB, 0x5A) + Bytes(4, 0);
    const Bytes report = frame(2, 0, body);
    const std::size_t count = gigabytes << 10;
    for (std::size_t i = 0; i < count; ++i) {
      if (!field.findings().demand(router->send(report), "the client takes what is sent")) break;
      if (i % 256 == 255) meanwhile();
    }
    meanwhile();
    field.findings().demand(stress::eventually([&] { return client->reports.load() == count; }),
                            "every report of the flood is delivered");
    field.findings().figure("hostile router, MiB delivered to a slow delegate",
                            client->bytes.load() / kMiB);
    client->connection()->invalidate();
    field.findings().demand(client->log->waitFor("invalidation"), "the flooded client ends");
  });
}

/// Accepts the request and stays silent; later it says farewell.
void neverReplies(Field& field, std::uint64_t requests) {
  field.attack("never replies", [&](const auto& meanwhile) {
    const auto client = Client::of(freshHostile());
    for (std::uint64_t i = 0; i < requests; ++i) client->start();
    const auto router = field.acceptHostile();
    router->send(routerHello());
    for (std::uint64_t i = 0; i < requests + 1; ++i) router->receiveFrame();
    meanwhile();
    field.findings().demand(client->log->lines().empty(), "no reply, no report");
    router->send(frame(6, 0, {}));
    field.findings().demand(client->log->waitFor("invalidation"), "a farewell ends the wait");
    field.findings().demandEqual("requests without a reply that got their error",
                                 client->log->count("error 4099"), requests);
    field.findings().figure("hostile router, requests never replied to", requests);
  });
}

/// Sends every breach and refusal of the set to a client, together with its kind of reply.
void wrongAnswers(Field& field) {
  std::uint64_t count = 0;
  field.attack("wrong answers", [&](const auto& meanwhile) {
    for (const auto& message : wireMessages()) {
      const bool first = message.receiver == conformance::Receiver::ClientFirst;
      if (!first && message.receiver != conformance::Receiver::Client) continue;
      if (message.bytes.size() > kMiB) continue;
      const auto client = Client::of(freshHostile());
      client->start();
      const auto router = field.acceptHostile();
      static_cast<void>(router->send(conformance::prelude(message.receiver) + message.bytes));
      router->close();
      field.findings().demand(client->log->waitForEither("interruption", "invalidation"),
                              "the client learns of the end: " + message.name);
      field.findings().demandEqual("events of a request and its connection: " + message.name,
                                   client->log->lines().size(), 2);
      ++count;
      if (count % 64 == 0) meanwhile();
    }
    meanwhile();
  });
  field.findings().figure("hostile router, wrong and right answers, each ending its request once",
                          count);
}

/// A router that reads nothing: what is kept for it is bounded, and the rest is counted.
void readsNothing(Field& field) {
  field.attack("reads nothing", [&](const auto& meanwhile) {
    const auto client = Client::of(freshHostile());
    client->start();
    const auto router = field.acceptHostile();
    router->send(routerHello());
    const auto data = NSData::dataWithLength(kMiB, [](std::span<std::uint8_t> bytes) {
      std::fill(bytes.begin(), bytes.end(), std::uint8_t{1});
    });
    const auto tags = NSDictionary::dictionaryWithEntries({{str("k"), data}});
    const auto proxy = client->proxy();
    for (int i = 0; i < 100; ++i)
      proxy->startRoutingServiceWithEntryID_deviceMode_tagDictionary_typeDictionary_reply(
          5, 0, tags, nullptr, {});
    meanwhile();
    const std::uint64_t dropped = client->connection()->messagesDropped();
    field.findings().demand(client->connection()->unsentBytes() <= kXPCUnsentLimit,
                            "what waits unsent has its bound");
    field.findings().demand(dropped >= 67, "what does not fit is dropped and counted");
    field.findings().figure("hostile router, requests dropped and counted of 101", dropped);
    client->connection()->invalidate();
    router->close();
    field.findings().demand(client->log->waitFor("invalidation"), "the unread client ends");
  });
}

void raiseDescriptorLimit() {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

void all(const stress::Work& work, stress::Findings& findings) {
  stress::Crowd crowdOfPeers;  // forks
  raiseDescriptorLimit();
  static_cast<void>(residentBytes());
  static_cast<void>(wireMessages());  // their memory must not count
  const testsupport::TemporaryDirectory directory;
  const testsupport::LogSink quiet([](std::string_view) {});
  Field field(findings, directory.path().string());
  breaches(field);
  wrongClasses(field, work.times(10'000, 100));
  halfFrames(field, work.times(2'000, 300));
  aByteAtATime(field, work.times(1'000, 50));
  slowKeys(field, work.times(100, 3));
  churn(field, work.times(100'000, 2'000));
  wrongAnswers(field);
  neverReplies(field, work.times(100'000, 2'000));
  flood(field, kSanitized ? 1 : work.times(8, 1));
  neverReads(field);
  readsNothing(field);
  findings.figure("hostile peers, most memory above the start, bytes",
                  std::uint64_t{field.mostMemory()});
  findings.demand(kSanitized || field.mostMemory() <= kMaxMemory,
                  "memory stays within 128 MiB of the start");
  // A sanitizer can handle some 8,000 threads.
  crowd(field, crowdOfPeers, kSanitized ? 2'000 : work.times(10'000, 2'000));
  findings.figure("hostile peers, attacks", field.attacks());
  findings.figure("hostile peers, another client's rounds beside them", field.rounds());
}

}  // namespace

int main(int argc, char** argv) {
  return stress::run(argc, argv, all);
}
