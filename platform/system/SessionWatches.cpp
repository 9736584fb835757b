// SPDX-License-Identifier: Apache-2.0

#include "platform/system/SessionWatches.h"

#include <systemd/sd-bus.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/system/SessionMessages.h"

namespace platform::system {
namespace {

constexpr std::size_t kWindow = 16;
constexpr const char* kBusName = "org.freedesktop.DBus";

constexpr const char* kOwnerRule =
    "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
    "member='NameOwnerChanged',arg0='org.freedesktop.login1'";
constexpr const char* kPropertiesRule =
    "type='signal',sender='org.freedesktop.login1',interface='org.freedesktop.DBus.Properties',"
    "member='PropertiesChanged',path_namespace='/org/freedesktop/login1/session'";
constexpr const char* kRemovedRule =
    "type='signal',sender='org.freedesktop.login1',interface='org.freedesktop.login1.Manager',"
    "member='SessionRemoved'";

template <class Key, class Value>
std::vector<Key> keysOf(const std::map<Key, Value>& map) {
  std::vector<Key> keys;
  keys.reserve(map.size());
  for (const auto& [key, value] : map) keys.push_back(key);
  return keys;
}

bool isSentBy(sd_bus_message* signal, std::string_view name) {
  const char* const sender = sd_bus_message_get_sender(signal);
  return sender != nullptr && !name.empty() && name == sender;
}

BusMessage composeOwnerQuery(sd_bus* connection) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(connection, &made, kBusName, "/org/freedesktop/DBus", kBusName,
                                     "GetNameOwner") < 0)
    return nullptr;
  BusMessage message(made);
  return sd_bus_message_append(made, "s", kLogind) < 0 ? nullptr : std::move(message);
}

}  // namespace

/// What sd-bus calls.
struct SessionWatches::Handlers {
  template <void (SessionWatches::*Handle)(sd_bus_message*)>
  static int signal(sd_bus_message* message, void* watches, sd_bus_error* /*unused*/) noexcept {
    (static_cast<SessionWatches*>(watches)->*Handle)(message);
    return 0;
  }

  /// The bus has answered to a rule.
  static int installed(sd_bus_message* reply, void* watches, sd_bus_error* /*unused*/) noexcept {
    if (sd_bus_message_is_method_error(reply, nullptr) > 0)
      static_cast<SessionWatches*>(watches)->becomeDeaf();
    return 0;
  }
};

void SessionWatches::MonitorRelease::operator()(sd_login_monitor* monitor) const noexcept {
  sd_login_monitor_unref(monitor);
}

SessionWatches::SessionWatches(SystemBus& bus, int changes, SystemBus::Clock::duration limit)
    : bus_(bus), limit_(limit), calls_(bus, kWindow), listener_{} {
  followFiles(changes);
  listener_ = bus.listen([this](bool isConnected) { followConnection(isConnected); });
}

SessionWatches::~SessionWatches() {
  end();
}

void SessionWatches::add(WatchID watch, const std::string& session, Changed changed) {
  watches_[watch] = session;
  const auto [found, isNew] = sessions_.try_emplace(session);
  if (isNew) found->second.path = pathOfSession(session);
  found->second.watchers[watch].changed = std::move(changed);
  if (isDeaf_ || found->second.path.empty()) return endSession(session);
  if (isNew) return read(session);
  if (found->second.state) tellOne(session, watch);
}

void SessionWatches::remove(WatchID watch) {
  const auto known = watches_.extract(watch);
  if (!known) return;
  const auto found = sessions_.find(known.mapped());
  if (found == sessions_.end()) return;
  found->second.watchers.erase(watch);
  if (!found->second.watchers.empty()) return;
  if (found->second.reading) calls_.drop(*found->second.reading);
  sessions_.erase(found);
}

void SessionWatches::end() {
  for (const WatchID watch : keysOf(watches_)) remove(watch);
  bus_.unlisten(listener_);
  if (const int changes = std::exchange(changes_, -1); changes >= 0) bus_.unwatch(changes);
  matches_.clear();
}

// ---- Where the news come from

void SessionWatches::followFiles(int changes) {
  sd_login_monitor* made = nullptr;
  if (changes < 0 && sd_login_monitor_new("session", &made) >= 0) {
    monitor_.reset(made);
    changes = sd_login_monitor_get_fd(made);
  }
  changes_ = changes;
  if (changes_ >= 0) bus_.watch(changes_, [this] { filesChanged(); });
}

void SessionWatches::filesChanged() {
  std::uint64_t count = 0;
  if (monitor_)
    sd_login_monitor_flush(monitor_.get());
  else if (::read(changes_, &count, sizeof count) < 0)
    return;
  readAll();
}

void SessionWatches::followConnection(bool isConnected) {
  matches_.clear();
  owner_.clear();
  isDeaf_ = false;
  if (isConnected)
    subscribe();
  else
    endAllSessions();
}

/// Before anything is asked: what changes after an answer is then told by a signal.
void SessionWatches::subscribe() {
  const std::array<std::pair<const char*, sd_bus_message_handler_t>, 3> rules{
      {{kOwnerRule, &Handlers::signal<&SessionWatches::ownerChanged>},
       {kPropertiesRule, &Handlers::signal<&SessionWatches::propertiesChanged>},
       {kRemovedRule, &Handlers::signal<&SessionWatches::sessionRemoved>}}};
  for (const auto& [rule, handler] : rules) {
    sd_bus_slot* slot = nullptr;
    if (sd_bus_add_match_async(bus_.connection(), &slot, rule, handler, &Handlers::installed,
                               this) < 0)
      return becomeDeaf();
    matches_.emplace_back(slot);
  }
  askForOwner();
}

void SessionWatches::becomeDeaf() {
  isDeaf_ = true;
  endAllSessions();
}

void SessionWatches::askForOwner() {
  calls_.call(&composeOwnerQuery, limit_, [this](const BusReply& reply) {
    const char* owner = nullptr;
    if (reply.message != nullptr && sd_bus_message_read(reply.message, "s", &owner) >= 0)
      owner_ = owner;
  });
}

bool SessionWatches::isFromLogind(sd_bus_message* signal) const {
  return isSentBy(signal, owner_);
}

void SessionWatches::ownerChanged(sd_bus_message* signal) {
  const char* name = nullptr;
  const char* before = nullptr;
  const char* now = nullptr;
  if (!isSentBy(signal, kBusName) || sd_bus_message_read(signal, "sss", &name, &before, &now) < 0 ||
      std::strcmp(name, kLogind) != 0)
    return;
  owner_ = now;
  if (*before != '\0') endAllSessions();
}

void SessionWatches::propertiesChanged(sd_bus_message* signal) {
  const char* const path = sd_bus_message_get_path(signal);
  if (!isFromLogind(signal) || path == nullptr) return;
  const auto found =
      std::ranges::find_if(sessions_, [&](const auto& each) { return each.second.path == path; });
  if (found == sessions_.end()) return;
  const std::string session = found->first;
  const SessionBadNews news = readBadNews(signal);
  if (std::optional<SessionState>& state = found->second.state) {
    if (news.isInactive) state->isActive = false;
    if (news.isLocked) state->isLocked = true;
    tell(session);
  }
  read(session);
}

void SessionWatches::sessionRemoved(sd_bus_message* signal) {
  const char* session = nullptr;
  if (isFromLogind(signal) && sd_bus_message_read(signal, "so", &session, nullptr) >= 0)
    endSession(session);
}

// ---- What is known

void SessionWatches::read(const std::string& session) {
  const auto found = sessions_.find(session);
  if (found == sessions_.end()) return;  // whoever was told the news has lost interest
  if (found->second.reading) {
    found->second.mustReadAgain = true;
    return;
  }
  found->second.reading =
      calls_.call([path = found->second.path](
                      sd_bus* connection) { return composeSessionQuery(connection, path); },
                  limit_, [this, session](const BusReply& reply) { receive(session, reply); });
}

void SessionWatches::readAll() {
  for (const std::string& session : keysOf(sessions_)) read(session);
}

void SessionWatches::receive(const std::string& session, const BusReply& reply) {
  Session& known = sessions_.at(session);
  known.reading.reset();
  const std::optional<SessionState> state =
      reply.message != nullptr ? readSession(reply.message, session) : std::nullopt;
  if (!state) return endSession(session);
  // What came in meanwhile may be newer than this answer.
  if (std::exchange(known.mustReadAgain, false)) return read(session);
  known.state = state;
  tell(session);
}

void SessionWatches::tell(const std::string& session) {
  for (const WatchID watch : keysOf(sessions_.at(session).watchers)) tellOne(session, watch);
}

void SessionWatches::tellOne(const std::string& session, WatchID watch) {
  const auto found = sessions_.find(session);
  if (found == sessions_.end() || !found->second.state) return;
  const auto watcher = found->second.watchers.find(watch);
  if (watcher == found->second.watchers.end()) return;
  const SessionState state = *found->second.state;
  if (watcher->second.told == state) return;
  watcher->second.told = state;
  const Changed changed = watcher->second.changed;
  changed(state);
}

void SessionWatches::endSession(const std::string& session) {
  const auto ended = sessions_.extract(session);
  if (!ended) return;
  const Session& known = ended.mapped();
  if (known.reading) calls_.drop(*known.reading);
  SessionState state = known.state.value_or(SessionState{.session = session});
  state.isActive = false;
  state.hasEnded = true;
  for (const auto& [watch, watcher] : known.watchers)
    if (watches_.erase(watch) > 0) watcher.changed(state);
}

void SessionWatches::endAllSessions() {
  for (const std::string& session : keysOf(sessions_)) endSession(session);
}

}  // namespace platform::system
