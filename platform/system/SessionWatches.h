// SPDX-License-Identifier: Apache-2.0

// The sessions that are watched, and who watches them.
//
// Threading: the bus's thread.
// Ownership: the bus outlives this object. Not destroyed while it tells a change.
// Order: see platform/system/LoginSessions.h.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/system/BusCalls.h"
#include "platform/system/LoginSessions.h"
#include "platform/system/SystemBus.h"

struct sd_login_monitor;

namespace platform::system {

class SessionWatches {
 public:
  using WatchID = LoginSessions::WatchID;
  using Changed = LoginSessions::Changed;

  SessionWatches(SystemBus& bus, int changes, SystemBus::Clock::duration limit);
  SessionWatches(const SessionWatches&) = delete;
  SessionWatches& operator=(const SessionWatches&) = delete;
  ~SessionWatches();

  void add(WatchID watch, const std::string& session, Changed changed);
  void remove(WatchID watch);
  /// Removes all, and follows nothing any more.
  void end();

 private:
  struct Watcher {
    Changed changed;
    std::optional<SessionState> told{};
  };
  struct Session {
    std::string path;
    std::optional<SessionState> state{};  ///< nothing until logind has answered
    std::optional<BusCalls::CallID> reading{};
    bool mustReadAgain = false;
    std::map<WatchID, Watcher> watchers{};
  };
  struct MonitorRelease {
    void operator()(sd_login_monitor* monitor) const noexcept;
  };
  struct Handlers;

  void followConnection(bool isConnected);
  void subscribe();
  void becomeDeaf();
  void askForOwner();
  void followFiles(int changes);
  void filesChanged();

  void ownerChanged(sd_bus_message* signal);
  void propertiesChanged(sd_bus_message* signal);
  void sessionRemoved(sd_bus_message* signal);
  [[nodiscard]] bool isFromLogind(sd_bus_message* signal) const;

  void read(const std::string& session);
  void readAll();
  void receive(const std::string& session, const BusReply& reply);
  void tell(const std::string& session);
  void tellOne(const std::string& session, WatchID watch);
  void endSession(const std::string& session);
  void endAllSessions();

  SystemBus& bus_;
  const SystemBus::Clock::duration limit_;
  BusCalls calls_;
  SystemBus::ListenerID listener_;
  std::unique_ptr<sd_login_monitor, MonitorRelease> monitor_;
  int changes_ = -1;
  std::vector<BusSlot> matches_;
  bool isDeaf_ = false;  ///< signals would not arrive, so nothing can be watched
  std::string owner_;    ///< logind's unique name on the bus; empty while it has none
  std::map<std::string, Session> sessions_;
  std::map<WatchID, std::string> watches_;
};

}  // namespace platform::system
