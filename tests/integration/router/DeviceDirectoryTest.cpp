// SPDX-License-Identifier: Apache-2.0

// What applications learn of the devices: the list once, then each change, and nothing in between
// twice or not at all. An application here has nothing but the socket.
#include <sys/eventfd.h>

#include "ServiceFixture.h"
#include "platform/foundation/NSArray.h"
#include "platform/services/FileDescriptor.h"
#include "router/control/DeviceListing.h"

namespace {

using platform::NSArray;
using platform::NSDictionary;
using platform::NSNumber;
using platform::str;
using router::ListedDevice;
using routertest::LineLog;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

ListedDevice deviceIn(const NSDictionary& dictionary) {
  const auto wrapped = NSDictionary::dictionaryWithEntries(
      {{str("Devices"),
        NSArray::arrayWithObjects({NSDictionary::dictionaryWithEntries(dictionary.entries())})}});
  return router::listedDevicesIn(*wrapped).at(0);
}

std::string hex(std::uint64_t id) {
  return platform::stringWithFormat("0x%llx", id);
}

/// Notes the changes that it is told, as "arrived 0x1 yes".
class Watcher final : public WLHIDDeviceDirectoryClientProtocol {
 public:
  explicit Watcher(std::shared_ptr<LineLog> log) : log_(std::move(log)) {}
  void deviceArrived(const std::shared_ptr<NSDictionary>& device) override {
    note("arrived ", deviceIn(*device));
  }
  void deviceChanged(const std::shared_ptr<NSDictionary>& device) override {
    note("changed ", deviceIn(*device));
  }
  void deviceDeparted(std::uint64_t registryEntryID) override {
    waitWhileHeld();
    log_->add("departed " + hex(registryEntryID));
  }
  /// Blocks the connection's queue until release().
  void hold() { isHeld_ = true; }
  void release() {
    isHeld_ = false;
    isHeld_.notify_all();
  }

 private:
  void waitWhileHeld() const { isHeld_.wait(true); }
  void note(const char* what, const ListedDevice& device) {
    waitWhileHeld();
    log_->add(what + hex(device.device.registryEntryID) + " " + router::nameOf(device.permission));
  }
  const std::shared_ptr<LineLog> log_;
  std::atomic<bool> isHeld_{false};
};

class DirectoryClient {
 public:
  DirectoryClient()
      : connection_(platform::NSXPCConnection::initWithMachServiceName_options(
            str(WLHIDDeviceDirectoryLabel), 0)) {
    connection_->setRemoteObjectInterface(
        platform::NSXPCInterface::interfaceWithProtocol(WLHIDDeviceDirectoryProtocol::protocol()));
    connection_->setExportedInterface(platform::NSXPCInterface::interfaceWithProtocol(
        WLHIDDeviceDirectoryClientProtocol::protocol()));
    connection_->setExportedObject<WLHIDDeviceDirectoryClientProtocol>(watcher);
    connection_->setInvalidationHandler([log = log] { log->add("ended: invalidated"); });
    connection_->setInterruptionHandler([log = log] { log->add("ended: interrupted"); });
    connection_->resume();
  }
  DirectoryClient(const DirectoryClient&) = delete;
  DirectoryClient& operator=(const DirectoryClient&) = delete;
  ~DirectoryClient() {
    watcher->release();
    connection_->invalidate();
  }

  /// Lists and watches. The error is noted as "refused …".
  std::vector<ListedDevice> watch(const std::shared_ptr<NSArray>& matching = nullptr,
                                  const std::shared_ptr<NSArray>& excluding = nullptr) {
    auto result = std::make_shared<std::promise<std::vector<ListedDevice>>>();
    auto answer = result->get_future();
    begin(matching, excluding, [result, log = log](const auto& devices, const auto& error) {
      std::vector<ListedDevice> listed;
      if (error != nullptr) log->add("refused " + textOf(error));
      if (devices != nullptr)
        devices->enumerateObjects([&](const auto& member) {
          listed.push_back(deviceIn(*platform::objectCast<NSDictionary>(member)));
        });
      result->set_value(std::move(listed));
    });
    const bool came = answer.wait_for(routertest::kPatience) == std::future_status::ready;
    EXPECT_TRUE(came) << "no list came";
    return came ? answer.get() : std::vector<ListedDevice>();
  }
  void begin(const std::shared_ptr<NSArray>& matching, const std::shared_ptr<NSArray>& excluding,
             WLHIDDeviceDirectoryProtocol::WatchReply reply) {
    proxy()->watchDevicesMatching_excluding_reply(matching, excluding, std::move(reply));
  }
  /// "05 01", or the error.
  std::string descriptorOf(std::uint64_t id) {
    auto result = std::make_shared<std::promise<std::string>>();
    auto answer = result->get_future();
    proxy()->reportDescriptorOfDevice_reply(id, [result](const auto& data, const auto& error) {
      std::string text = error == nullptr ? "" : textOf(error);
      if (data != nullptr)
        for (const std::uint8_t byte : data->span())
          text += platform::stringWithFormat("%02x ", byte);
      result->set_value(text);
    });
    return answer.wait_for(routertest::kPatience) == std::future_status::ready ? answer.get()
                                                                               : "none";
  }

  const std::shared_ptr<LineLog> log = std::make_shared<LineLog>();
  const std::shared_ptr<Watcher> watcher = std::make_shared<Watcher>(log);

 private:
  static std::string textOf(const std::shared_ptr<platform::NSError>& error) {
    const auto text = error->userInfo()->objectForKey(platform::NSLocalizedDescriptionKey);
    return std::to_string(error->code()) + " " + platform::descriptionOf(text);
  }
  std::shared_ptr<WLHIDDeviceDirectoryProtocol> proxy() {
    return connection_->remoteObjectProxyWithErrorHandler<WLHIDDeviceDirectoryProtocol>(
        [log = log](const auto& error) { log->add("error " + std::to_string(error->code())); });
  }
  const std::shared_ptr<platform::NSXPCConnection> connection_;
};

std::shared_ptr<NSArray> oneCriterion(
    const std::vector<std::pair<std::string_view, std::uint64_t>>& numbers) {
  std::vector<NSDictionary::Entry> entries;
  for (const auto& [key, number] : numbers)
    entries.emplace_back(str(key), NSNumber::numberWithUnsignedLongLong(number));
  return NSArray::arrayWithObjects({NSDictionary::dictionaryWithEntries(std::move(entries))});
}

std::vector<std::uint64_t> idsOf(const std::vector<ListedDevice>& devices) {
  std::vector<std::uint64_t> ids;
  for (const ListedDevice& each : devices) ids.push_back(each.device.registryEntryID);
  return ids;
}

constexpr const char* kPen =
    "R: 15 05 0d 09 02 a1 01 09 30 75 08 95 01 81 02 c0\nN: Pen\nI: 3 056a 002f\nE: 0.0 1 01\n";

class DeviceDirectory : public routertest::ServiceFixture {
 protected:
  void remove(const std::string& name) { router::removeReplayDevice(root(), name); }
};

TEST_F(DeviceDirectory, ListsTheRecordingsOfAUsersRoot) {
  const std::uint64_t id = addDevice("pen", kPen);
  start(nullptr);
  DirectoryClient client;
  const auto devices = client.watch();
  ASSERT_EQ(devices.size(), 1U);
  EXPECT_EQ(devices[0].device.registryEntryID, id);
  EXPECT_EQ(devices[0].device.name, "Pen");
  EXPECT_EQ(devices[0].device.vendor, 0x56aU);
  EXPECT_EQ(devices[0].device.product, 0x2fU);
  EXPECT_THAT(devices[0].collections, ElementsAre(router::Usage{0xd, 2}));
  EXPECT_EQ(devices[0].deviceClass, std::nullopt);
  EXPECT_EQ(devices[0].permission, router::DevicePermission::Yes);
  EXPECT_EQ(client.descriptorOf(id), "05 0d 09 02 a1 01 09 30 75 08 95 01 81 02 c0 ");
  EXPECT_EQ(client.descriptorOf(id + 1),
            "-536870208 no device has the registry entry ID " + hex(id + 1));
}

TEST_F(DeviceDirectory, FiltersByWhatADeviceIs) {
  const std::uint64_t pen = addDevice("pen", kPen);
  const std::uint64_t mouse = addDevice("mouse", routertest::kThreeReports);
  start(nullptr);
  DirectoryClient client;
  EXPECT_THAT(idsOf(client.watch()), UnorderedElementsAre(pen, mouse));
  EXPECT_THAT(idsOf(client.watch(oneCriterion({{"UsagePage", 0xd}, {"Usage", 2}}))),
              ElementsAre(pen));
  EXPECT_THAT(idsOf(client.watch(nullptr, oneCriterion({{"Vendor", 0x56a}}))), ElementsAre(mouse));
  EXPECT_THAT(idsOf(client.watch(oneCriterion({{"Device", mouse}}))), ElementsAre(mouse));
}

TEST_F(DeviceDirectory, TellsWhatComesAndGoesAsTheFilterAllows) {
  start(nullptr);
  DirectoryClient all;
  DirectoryClient pens;
  EXPECT_TRUE(all.watch().empty());
  EXPECT_TRUE(pens.watch(oneCriterion({{"UsagePage", 0xd}})).empty());
  const std::uint64_t mouse = addDevice("mouse", routertest::kThreeReports);
  all.log->await(1);
  const std::uint64_t pen = addDevice("pen", kPen);
  all.log->await(2);
  remove("mouse");
  all.log->await(3);
  remove("pen");
  EXPECT_THAT(all.log->await(4),
              ElementsAre("arrived " + hex(mouse) + " yes", "arrived " + hex(pen) + " yes",
                          "departed " + hex(mouse), "departed " + hex(pen)));
  EXPECT_THAT(pens.log->await(2),
              ElementsAre("arrived " + hex(pen) + " yes", "departed " + hex(pen)));
}

TEST_F(DeviceDirectory, ADeviceThatIsOnlyDescribedAnewHasChanged) {
  const std::uint64_t id = addDevice("pen", kPen);
  start(nullptr);
  DirectoryClient client;
  EXPECT_EQ(idsOf(client.watch()).size(), 1U);
  std::string renamed = kPen;
  renamed.replace(renamed.find("Pen"), 3, "Stift");
  testsupport::writeFile(copyOf("pen"), renamed);
  EXPECT_THAT(client.log->await(1), ElementsAre("changed " + hex(id) + " yes"));
}

/// Devices come and go while the lists are being made: each watcher's list and changes add up to
/// what is there in the end.
TEST_F(DeviceDirectory, NothingIsLostOrToldTwiceBetweenTheListAndTheChanges) {
  start(nullptr);
  std::atomic<bool> isDone{false};
  std::thread changes([&] {
    for (int i = 0; i < 20; ++i) {
      addDevice("pen", kPen);
      remove("pen");
    }
    addDevice("pen", kPen);
    isDone = true;
  });
  std::vector<std::unique_ptr<DirectoryClient>> clients;
  std::vector<std::set<std::uint64_t>> known;
  while (clients.size() < 8) {
    clients.push_back(std::make_unique<DirectoryClient>());
    const auto ids = idsOf(clients.back()->watch());
    known.emplace_back(ids.begin(), ids.end());
  }
  changes.join();
  // A listing that began before the pen came may have missed it and still have what came last, and
  // the next one tells the pen after that one's departure. A third one is told after all of that.
  const std::uint64_t last = addDevice("last", routertest::kThreeReports);
  for (const auto& client : clients) client->log->awaitLine("arrived " + hex(last));
  remove("last");
  for (const auto& client : clients) client->log->awaitLine("departed " + hex(last));
  const std::uint64_t end = addDevice("end", routertest::kThreeReports);
  for (std::size_t i = 0; i < clients.size(); ++i) {
    clients[i]->log->awaitLine("arrived " + hex(end));
    for (const std::string& line : clients[i]->log->lines()) {
      const std::uint64_t id = std::stoull(line.substr(line.find("0x")), nullptr, 16);
      if (line.starts_with("arrived"))
        EXPECT_TRUE(known[i].insert(id).second) << "twice: " << line;
      else if (line.starts_with("changed"))  // it went while it was being described, and came back
        EXPECT_TRUE(known[i].contains(id)) << "never told: " << line;
      else
        EXPECT_EQ(known[i].erase(id), 1U) << "never told: " << line;
    }
    EXPECT_EQ(known[i].size(), 2U) << "the pen and what came at the end";
  }
}

TEST_F(DeviceDirectory, SaysWhatTheCallerMayAndWhyNot) {
  const std::vector<std::uint64_t> ids = addMice(3);
  router::ReportIDs two;
  two.set(2).set(5);
  authority_->previews[ids[0]] = {true, {}, two};
  authority_->previews[ids[1]] = {false, "not permitted: the login session is not active", {}};
  authority_->previews[ids[2]] = {false, "not permitted: it needs a person", {}, true};
  startShared();
  DirectoryClient client;
  std::map<std::uint64_t, std::string> said;
  for (const ListedDevice& each : client.watch()) {
    said[each.device.registryEntryID] = each.explanation;
    EXPECT_EQ(each.deviceClass, router::DeviceClass::Sensitive);
    EXPECT_EQ(each.reason, "it has keys");
  }
  EXPECT_THAT(said[ids[0]], HasSubstr("you may, its reports 2, 5"));
  EXPECT_EQ(said[ids[1]], "not permitted: the login session is not active");
  EXPECT_EQ(said[ids[2]], "an administrator has to agree each time");
}

TEST_F(DeviceDirectory, WhatChangesWhileAnAnswerIsAwaitedIsToldAfterTheList) {
  const std::uint64_t pen = addDevice("pen", kPen);
  remove("pen");
  authority_->previews[pen] = {true, {}, router::allReports()};
  const std::uint64_t silent = addDevice("mouse", routertest::kThreeReports);
  router::RouterLimits limits;
  limits.controlTimeout = std::chrono::milliseconds(300);
  startShared(limits);
  DirectoryClient first;
  DirectoryClient second;
  auto listed = std::make_shared<std::promise<std::size_t>>();
  first.begin(nullptr, nullptr, [listed, log = first.log](const auto& devices, const auto&) {
    log->add("listed");
    listed->set_value(devices == nullptr ? 0 : devices->count());
  });
  EXPECT_NE(first.descriptorOf(silent), "") << "by now the watch has begun";
  // A watch that nobody has to be asked for sees the change at once.
  EXPECT_TRUE(second.watch(oneCriterion({{"UsagePage", 0xd}})).empty());
  EXPECT_EQ(addDevice("pen", kPen), pen);
  second.log->awaitLine("arrived " + hex(pen));
  const auto lines = first.log->await(2);
  EXPECT_THAT(lines, ElementsAre("listed", "arrived " + hex(pen) + " yes"));
  EXPECT_EQ(listed->get_future().get(), 1U);
}

TEST_F(DeviceDirectory, ANewWatchTakesThePlaceOfTheLast) {
  const std::uint64_t pen = addDevice("pen", kPen);
  start(nullptr);
  DirectoryClient client;
  EXPECT_THAT(idsOf(client.watch(oneCriterion({{"Vendor", 1}}))), ElementsAre());
  EXPECT_THAT(idsOf(client.watch(oneCriterion({{"Vendor", 0x56a}}))), ElementsAre(pen));
  addDevice("mouse", routertest::kThreeReports);
  remove("pen");
  EXPECT_THAT(client.log->await(1), ElementsAre("departed " + hex(pen)));
}

TEST_F(DeviceDirectory, WhatIsNotUnderstoodIsRefused) {
  start(nullptr);
  DirectoryClient client;
  EXPECT_TRUE(client.watch(oneCriterion({{"Colour", 3}})).empty());
  EXPECT_THAT(client.log->lines(), ElementsAre("refused -536870206 unknown criterion Colour"));
}

TEST_F(DeviceDirectory, AUserWhoAsksTooOftenIsRefused) {
  router::RouterLimits limits;
  limits.directoryRequestsPerUser = {2, 0.001};
  start(nullptr, limits);
  DirectoryClient client;
  client.watch();
  EXPECT_NE(client.descriptorOf(1), "");
  client.watch();
  EXPECT_THAT(client.log->lines(),
              ElementsAre("refused -536870187 too many requests from this user; try again later"));
}

TEST_F(DeviceDirectory, AUserHasSoManyConnections) {
  router::RouterLimits limits;
  limits.directoryConnectionsPerUser = 1;
  start(nullptr, limits);
  DirectoryClient first;
  first.watch();
  DirectoryClient second;
  second.begin(nullptr, nullptr, [](const auto&, const auto&) {});
  second.log->awaitLine("invalidated");
}

TEST_F(DeviceDirectory, StrangersAreNotServed) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  start(nullptr);
  actAs(testsupport::kOtherUser);
  DirectoryClient client;
  client.begin(nullptr, nullptr, [](const auto&, const auto&) {});
  client.log->awaitLine("invalidated");
  routerLog_->awaitLine("refused: process");
}

/// So many devices with so long names that telling of them all takes 100 KiB.
class Swarm final : public router::DeviceSource {
 public:
  struct State {
    std::atomic<bool> isThere{false};
    const platform::FileDescriptor event{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    void setThere(bool there) {
      isThere = there;
      ::eventfd_write(event.get(), 1);
    }
  };
  explicit Swarm(std::shared_ptr<State> state) : state_(std::move(state)) {}

  std::vector<router::DeviceDescription> list(std::vector<std::string>*) const override {
    std::vector<router::DeviceDescription> devices;
    for (std::uint64_t id = 1; state_->isThere && id <= 100; ++id)
      devices.push_back({id, std::string(1000, 'x'), 3, 1, 2, "swarm"});
    return devices;
  }
  std::unique_ptr<router::OpenDevice> open(std::uint64_t) const override { return nullptr; }
  std::unique_ptr<router::DeviceWatch> watch() const override {
    class Watch final : public router::DeviceWatch {
     public:
      explicit Watch(std::shared_ptr<State> state) : state_(std::move(state)) {}
      [[nodiscard]] int descriptor() const override { return state_->event.get(); }
      bool take() override {
        eventfd_t count = 0;
        return ::eventfd_read(state_->event.get(), &count) == 0;
      }

     private:
      const std::shared_ptr<State> state_;
    };
    return std::make_unique<Watch>(state_);
  }

 private:
  const std::shared_ptr<State> state_;
};

TEST_F(DeviceDirectory, WhoeverDoesNotReadIsDisconnectedAndHoldsUpNobody) {
  const auto swarm = std::make_shared<Swarm::State>();
  auto sources = std::make_shared<router::DeviceSources>();
  sources->push_back(std::make_unique<Swarm>(swarm));
  sources_ = sources;
  router::RouterLimits limits;
  limits.directoryInterval = std::chrono::milliseconds(1);
  start(nullptr, limits);
  DirectoryClient slow;
  DirectoryClient other;
  slow.watch();
  other.watch();
  slow.watcher->hold();
  const auto isDropped = [&] {
    const auto lines = routerLog_->lines();
    return std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
      return line.find("does not read what the device directory tells it") != std::string::npos;
    });
  };
  for (int round = 1; round <= 50 && !isDropped(); ++round) {
    swarm->setThere(true);
    other.log->await(static_cast<std::size_t>(round) * 200 - 100);
    swarm->setThere(false);
    other.log->await(static_cast<std::size_t>(round) * 200);
  }
  EXPECT_TRUE(isDropped());
  slow.watcher->release();
  slow.log->awaitLast("ended");
  swarm->setThere(true);
  other.log->awaitLast("arrived 0x64 yes");
}

TEST_F(DeviceDirectory, TheRouterIsInUseUntilTheLastWatchHasEnded) {
  idleLimit_ = std::chrono::seconds(3);
  start(nullptr);
  auto client = std::make_unique<DirectoryClient>();
  client->watch();
  EXPECT_THAT(routerLog_->lines(), testing::Not(testing::Contains("nobody is connected")));
  client = nullptr;
  routerLog_->awaitLine("nobody is connected");
}

TEST_F(DeviceDirectory, StoppingEndsItsConnections) {
  start(nullptr);
  DirectoryClient client;
  client.watch();
  router_->stop();
  client.log->awaitLine("invalidated");
}

}  // namespace
