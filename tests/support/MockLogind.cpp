// SPDX-License-Identifier: Apache-2.0

#include "tests/support/MockLogind.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace testsupport {
namespace {

constexpr const char* kLogindName = "org.freedesktop.login1";
constexpr const char* kRoot = "/org/freedesktop/login1/session";
constexpr const char* kInterface = "org.freedesktop.login1.Session";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

using Text = std::unique_ptr<char, void (*)(void*)>;
using Message = std::unique_ptr<sd_bus_message, sd_bus_message* (*)(sd_bus_message*)>;

Text pathOf(const std::string& id) {
  char* path = nullptr;
  sd_bus_path_encode(kRoot, id.c_str(), &path);
  return {path, &std::free};
}

Message newSignal(sd_bus* bus, const char* path, const char* interface, const char* member,
                  const char* destination) {
  sd_bus_message* made = nullptr;
  sd_bus_message_new_signal(bus, &made, path, interface, member);
  if (destination != nullptr) sd_bus_message_set_destination(made, destination);
  return {made, &sd_bus_message_unref};
}

}  // namespace

struct MockLogind::Handlers {
  static int message(sd_bus_message* call, void* mock, sd_bus_error* /*unused*/) noexcept {
    if (sd_bus_message_is_method_call(call, kProperties, "GetAll") <= 0) return 0;
    return static_cast<MockLogind*>(mock)->describe(call);
  }
};

MockLogind::MockLogind(const std::string& address, Impostor /*impostor*/)
    : bus_({.address = address}) {}

MockLogind::MockLogind(const std::string& address) : bus_({.address = address}) {
  bool isThere = false;
  bus_.run([&] {
    sd_bus* const connection = bus_.connection();
    isThere = connection != nullptr &&
              sd_bus_add_fallback(connection, nullptr, kRoot, &Handlers::message, this) >= 0 &&
              sd_bus_request_name(connection, kLogindName, 0) >= 0;
  });
  if (!isThere) throw std::runtime_error("the mock of logind cannot appear on the bus");
}

int MockLogind::describe(sd_bus_message* call) {
  ++asked_;
  char* decoded = nullptr;
  if (sd_bus_path_decode(sd_bus_message_get_path(call), kRoot, &decoded) <= 0) return 0;
  const Text id(decoded, &std::free);
  const auto found = sessions_.find(id.get());
  if (found == sessions_.end())
    return sd_bus_reply_method_errorf(call, "org.freedesktop.DBus.Error.UnknownObject", "no %s",
                                      id.get());
  const Session& session = found->second;
  if (session.isMute) return 1;
  const char* const state = session.lacksState ? "Status" : "State";
  return sd_bus_reply_method_return(
      call, "a{sv}", 7, "Id", "s", id.get(), "User", "(uo)",
      static_cast<std::uint32_t>(session.user), "/org/freedesktop/login1/user/self", "Class", "s",
      "user", "Active", "b", static_cast<int>(session.isActive), state, "s", session.state.c_str(),
      "LockedHint", "b", static_cast<int>(session.isLocked), "Remote", "b",
      static_cast<int>(session.isRemote));
}

void MockLogind::set(const std::string& id, const Session& session) {
  bus_.run([&] { sessions_[id] = session; });
}

void MockLogind::setActive(const std::string& id, bool isActive) {
  bus_.run([&] {
    sessions_.at(id).isActive = isActive;
    sessions_.at(id).state = isActive ? "active" : "online";
    signalChange(id, "Active", isActive, nullptr);
  });
}

void MockLogind::setLocked(const std::string& id, bool isLocked) {
  bus_.run([&] {
    sessions_.at(id).isLocked = isLocked;
    signalChange(id, "LockedHint", isLocked, nullptr);
  });
}

void MockLogind::remove(const std::string& id) {
  bus_.run([&] { sessions_.erase(id); });
  signalRemoved(id);
}

void MockLogind::signalActive(const std::string& id, bool isActive, const char* destination) {
  bus_.run([&] { signalChange(id, "Active", isActive, destination); });
}

void MockLogind::signalChange(const std::string& id, const char* property, bool value,
                              const char* destination) {
  const Message signal =
      newSignal(bus_.connection(), pathOf(id).get(), kProperties, "PropertiesChanged", destination);
  sd_bus_message_append(signal.get(), "sa{sv}as", kInterface, 1, property, "b",
                        static_cast<int>(value), 0);
  sd_bus_send(bus_.connection(), signal.get(), nullptr);
  sd_bus_flush(bus_.connection());
}

void MockLogind::signalDone(const char* destination) {
  bus_.run([&] {
    const Message signal =
        newSignal(bus_.connection(), "/test", "test.Logind", "Done", destination);
    sd_bus_send(bus_.connection(), signal.get(), nullptr);
    sd_bus_flush(bus_.connection());
  });
}

void MockLogind::signalRemoved(const std::string& id, const char* destination) {
  bus_.run([&] {
    const Message signal =
        newSignal(bus_.connection(), "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                  "SessionRemoved", destination);
    sd_bus_message_append(signal.get(), "so", id.c_str(), pathOf(id).get());
    sd_bus_send(bus_.connection(), signal.get(), nullptr);
    sd_bus_flush(bus_.connection());
  });
}

}  // namespace testsupport
