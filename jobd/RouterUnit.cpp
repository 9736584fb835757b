// SPDX-License-Identifier: Apache-2.0

#include "jobd/RouterUnit.h"

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <utility>

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
  if (sd_bus_message_new_method_call(connection, &made, kSystemd, pathOf(unit).c_str(),
                                     "org.freedesktop.DBus.Properties", "Get") < 0)
    return nullptr;
  BusMessage message(made);
  const bool isComplete =
      sd_bus_message_append(made, "ss", "org.freedesktop.systemd1.Service", "MainPID") >= 0;
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
  Calls(SystemBus& bus, std::string name) : bus_(bus), name_(std::move(name)), calls_(bus, 1) {}

  /// A client that was cut off may have started the next one before anybody looks, so what is
  /// awaited is the end of this one.
  void stop(Stopped stopped) {
    query([this, stopped = std::move(stopped)](const BusReply& reply) {
      if (reply.message == nullptr) return stopped(reply.error);
      stop(stopped, processIn(reply.message));
    });
  }

 private:
  using Time = SystemBus::Clock::time_point;

  void query(BusCalls::Answered answered) {
    calls_.call([this](sd_bus* connection) { return composeQuery(connection, name_); }, kCallLimit,
                std::move(answered));
  }

  /// The answer to a stop comes when the stop is queued.
  void stop(const Stopped& stopped, std::uint32_t process) {
    calls_.call([this](sd_bus* connection) { return composeStop(connection, name_); }, kCallLimit,
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

  SystemBus& bus_;
  const std::string name_;
  BusCalls calls_;
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

}  // namespace jobd
