// SPDX-License-Identifier: Apache-2.0

#include "platform/system/SessionMessages.h"

#include <systemd/sd-bus.h>

#include <cstdlib>
#include <functional>
#include <string_view>

namespace platform::system {
namespace {

constexpr const char* kSessionInterface = "org.freedesktop.login1.Session";

struct Properties {
  std::optional<std::string> id{};
  std::optional<std::string> state{};
  std::optional<bool> isActive{};
  std::optional<bool> isLocked{};
  std::optional<bool> isRemote{};
  std::optional<uid_t> user{};
};

bool readText(sd_bus_message* message, std::optional<std::string>& text) {
  const char* value = nullptr;
  if (sd_bus_message_read(message, "v", "s", &value) < 0) return false;
  text = value;
  return true;
}

bool readFlag(sd_bus_message* message, std::optional<bool>& flag) {
  int value = 0;
  if (sd_bus_message_read(message, "v", "b", &value) < 0) return false;
  flag = value != 0;
  return true;
}

bool readUser(sd_bus_message* message, std::optional<uid_t>& user) {
  std::uint32_t value = 0;
  if (sd_bus_message_read(message, "v", "(uo)", &value, nullptr) < 0) return false;
  user = value;
  return true;
}

bool readProperty(sd_bus_message* message, Properties& properties) {
  const char* text = nullptr;
  if (sd_bus_message_read(message, "s", &text) < 0) return false;
  const std::string_view name = text;
  if (name == "Id") return readText(message, properties.id);
  if (name == "State") return readText(message, properties.state);
  if (name == "Active") return readFlag(message, properties.isActive);
  if (name == "LockedHint") return readFlag(message, properties.isLocked);
  if (name == "Remote") return readFlag(message, properties.isRemote);
  if (name == "User") return readUser(message, properties.user);
  return sd_bus_message_skip(message, "v") >= 0;
}

/// Reads an "a{sv}". A property of the wrong type makes all of it unreadable.
bool readProperties(sd_bus_message* message, Properties& properties) {
  if (sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "{sv}") < 0) return false;
  int result = 0;
  while ((result = sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, "sv")) > 0)
    if (!readProperty(message, properties) || sd_bus_message_exit_container(message) < 0)
      return false;
  return result == 0 && sd_bus_message_exit_container(message) >= 0;
}

}  // namespace

std::string pathOfSession(const std::string& session) {
  char* path = nullptr;
  if (sd_bus_path_encode("/org/freedesktop/login1/session", session.c_str(), &path) < 0) return {};
  std::string copy = path;
  std::free(path);
  return copy;
}

BusMessage composeSessionQuery(sd_bus* connection, const std::string& path) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(connection, &made, kLogind, path.c_str(),
                                     "org.freedesktop.DBus.Properties", "GetAll") < 0)
    return nullptr;
  BusMessage message(made);
  if (sd_bus_message_append(made, "s", kSessionInterface) < 0) return nullptr;
  return message;
}

std::optional<SessionState> readSession(sd_bus_message* message, const std::string& session) {
  Properties read;
  if (sd_bus_message_has_signature(message, "a{sv}") <= 0 || !readProperties(message, read))
    return std::nullopt;
  if (read.id != session || !read.state || !read.isActive || !read.isLocked || !read.isRemote ||
      !read.user)
    return std::nullopt;
  return SessionState{.session = session,
                      .user = *read.user,
                      .isActive = *read.state == "active" && *read.isActive,
                      .isLocked = *read.isLocked,
                      .isRemote = *read.isRemote};
}

SessionBadNews readBadNews(sd_bus_message* signal) {
  const char* interface = nullptr;
  Properties read;
  if (sd_bus_message_has_signature(signal, "sa{sv}as") <= 0 ||
      sd_bus_message_read(signal, "s", &interface) < 0 ||
      std::string_view(interface) != kSessionInterface || !readProperties(signal, read))
    return {};
  return {.isInactive = read.isActive == false || (read.state && *read.state != "active"),
          .isLocked = read.isLocked == true};
}

}  // namespace platform::system
