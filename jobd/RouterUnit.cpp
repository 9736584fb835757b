// SPDX-License-Identifier: Apache-2.0

#include "jobd/RouterUnit.h"

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "jobd/RouterProperties.h"
#include "platform/system/BusCalls.h"

namespace jobd {
namespace {

using platform::system::BusCalls;
using platform::system::BusMessage;
using platform::system::BusReply;
using platform::system::SystemBus;

constexpr const char* kSystemd = "org.freedesktop.systemd1";
constexpr const char* kManagerPath = "/org/freedesktop/systemd1";
constexpr std::chrono::seconds kCallLimit{5};
// Longer than the unit's TimeoutStopSec=.
constexpr std::chrono::seconds kStopLimit{15};
constexpr std::chrono::milliseconds kPause{50};
// A caller waits for the answer to both of its queries.
constexpr std::chrono::seconds kAskLimit{2};
constexpr std::size_t kAskWindow = 8;
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

BusMessage composeStop(sd_bus* connection, const std::string& unit) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(connection, &made, kSystemd, kManagerPath,
                                     "org.freedesktop.systemd1.Manager", "StopUnit") < 0)
    return nullptr;
  BusMessage message(made);
  const bool isComplete = sd_bus_message_append(made, "ss", unit.c_str(), "replace") >= 0;
  return isComplete ? std::move(message) : nullptr;
}

std::string pathOf(const std::string& unit) {
  char* path = nullptr;
  if (sd_bus_path_encode("/org/freedesktop/systemd1/unit", unit.c_str(), &path) < 0) return {};
  std::string copy = path;
  std::free(path);
  return copy;
}

BusMessage composeQuery(sd_bus* connection, const std::string& unit) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(connection, &made, kSystemd, pathOf(unit).c_str(), kProperties,
                                     "Get") < 0)
    return nullptr;
  BusMessage message(made);
  const bool isComplete =
      sd_bus_message_append(made, "ss", "org.freedesktop.systemd1.Service", "MainPID") >= 0;
  return isComplete ? std::move(message) : nullptr;
}

/// For the properties of all interfaces of the unit.
BusMessage composeQueryOfAll(sd_bus* connection, const std::string& unit) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(connection, &made, kSystemd, pathOf(unit).c_str(), kProperties,
                                     "GetAll") < 0)
    return nullptr;
  BusMessage message(made);
  const bool isComplete = sd_bus_message_append(made, "s", "") >= 0;
  return isComplete ? std::move(message) : nullptr;
}

/// 0 if none is running.
std::uint32_t processIn(sd_bus_message* message) {
  std::uint32_t process = 0;
  return sd_bus_message_read(message, "v", "u", &process) < 0 ? 0 : process;
}

}  // namespace

/// On the bus's thread.
class RouterUnit::Calls : public std::enable_shared_from_this<Calls> {
 public:
  Calls(SystemBus& bus, std::string name)
      : bus_(bus), unit_(std::move(name)), calls_(bus, 1), questions_(bus, kAskWindow) {}

  /// A client that was cut off may have started the next one before anybody looks, so what is
  /// awaited is the end of this one.
  void stop(Stopped stopped) {
    query([this, stopped = std::move(stopped)](const BusReply& reply) {
      if (reply.message == nullptr) return stopped(reply.error);
      stop(stopped, processIn(reply.message));
    });
  }

  void ask(const Told& told) {
    queryAll(".service", [this, told](const UnitProperties& service) {
      queryAll(".socket", [this, told, service](const UnitProperties& socket) {
        told(routerReport(unit_, service, socket,
                          std::chrono::duration_cast<std::chrono::microseconds>(
                              SystemBus::Clock::now().time_since_epoch())));
      });
    });
  }

 private:
  using Time = SystemBus::Clock::time_point;

  /// What cannot be asked or read has no properties.
  void queryAll(const char* suffix, const std::function<void(const UnitProperties&)>& answered) {
    questions_.call(
        [name = unit_ + suffix](sd_bus* connection) { return composeQueryOfAll(connection, name); },
        kAskLimit,
        [answered](const BusReply& reply) {
          const auto read =
              reply.message == nullptr ? std::nullopt : readUnitProperties(reply.message);
          answered(read.value_or(UnitProperties()));
        });
  }

  void query(BusCalls::Answered answered) {
    calls_.call([this](sd_bus* connection) { return composeQuery(connection, service()); },
                kCallLimit, std::move(answered));
  }

  /// The answer to a stop comes when the stop is queued.
  void stop(const Stopped& stopped, std::uint32_t process) {
    calls_.call([this](sd_bus* connection) { return composeStop(connection, service()); },
                kCallLimit,
                [this, stopped, process](const BusReply& reply) {
                  if (reply.message == nullptr) return stopped(reply.error);
                  awaitEnd(stopped, process, SystemBus::Clock::now() + kStopLimit);
                });
  }

  void awaitEnd(const Stopped& stopped, std::uint32_t process, Time deadline) {
    query([this, stopped, process, deadline](const BusReply& reply) {
      if (reply.message == nullptr) return stopped(reply.error);
      const std::uint32_t now = processIn(reply.message);
      if (now == 0 || now != process) return stopped({});
      if (SystemBus::Clock::now() > deadline) return stopped("it did not end in time");
      bus_.callAfter(kPause, [weak = weak_from_this(), stopped, process, deadline] {
        if (const auto self = weak.lock()) self->awaitEnd(stopped, process, deadline);
      });
    });
  }

  [[nodiscard]] std::string service() const { return unit_ + ".service"; }

  SystemBus& bus_;
  const std::string unit_;
  BusCalls calls_;
  BusCalls questions_;  ///< of their own, so that a stop does not wait for them
};

RouterUnit::RouterUnit(SystemBus& bus, std::string name) : bus_(bus) {
  bus_.run([&] { calls_ = std::make_shared<Calls>(bus_, std::move(name)); });
}

RouterUnit::~RouterUnit() {
  bus_.run([this] { calls_.reset(); });
}

void RouterUnit::stop(Stopped stopped) {
  bus_.post([calls = std::weak_ptr<Calls>(calls_), stopped = std::move(stopped)] {
    if (const auto self = calls.lock()) self->stop(stopped);
  });
}

void RouterUnit::ask(Told told) {
  bus_.post([calls = std::weak_ptr<Calls>(calls_), told = std::move(told)] {
    if (const auto self = calls.lock()) self->ask(told);
  });
}

}  // namespace jobd
