// SPDX-License-Identifier: Apache-2.0

// Login sessions: which one a process belongs to, and whether its user is in front of it.
//
// A watched session is known from logind. Bad news counts at once: a signal that the session is
// inactive or locked, its end, and logind's or the bus's disappearance, after which the session
// has ended for whoever watched it. Good news counts when logind has confirmed it. Signals count
// only if they come from logind: anybody on the bus can send one that looks like it.
//
// Threading: sessionOf, watch and unwatch from any thread, without waiting for the bus. Changes
//   are told on the bus's thread, with no lock held.
// Ownership: the bus outlives this object. Destruction ends all watches, untold.
// Order: as the changes happened, each once. Nothing is told after the end of a session.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/system/PeerProcess.h"
#include "platform/system/SessionLookup.h"
#include "platform/system/SystemBus.h"

namespace platform::system {

struct SessionState {
  std::string session;
  /// Whose session it is, which need not be the user that a process in it runs as; -1 if it was
  /// never known.
  uid_t user = static_cast<uid_t>(-1);
  bool isActive = false;
  bool isLocked = false;
  bool isRemote = false;
  bool hasEnded = false;  ///< or can no longer be known; for good, watch it anew to know more

  /// Whether input may be delivered to it.
  [[nodiscard]] bool isInFront() const { return isActive && !isLocked && !hasEnded; }
  friend bool operator==(const SessionState&, const SessionState&) = default;
};

class SessionWatches;

class LoginSessions {
 public:
  enum class WatchID : std::uint64_t {};
  using Changed = std::function<void(const SessionState& state)>;

  struct Options {
    SessionLookup lookup = SessionLookup::ofSystem();
    /// Becomes readable when something may have changed that logind sends no signal for; -1: what
    /// logind's own files tell.
    int changes = -1;
    SystemBus::Clock::duration limit = std::chrono::seconds(5);  ///< for logind's answers
  };

  explicit LoginSessions(SystemBus& bus) : LoginSessions(bus, Options()) {}
  LoginSessions(SystemBus& bus, Options options);
  LoginSessions(const LoginSessions&) = delete;
  LoginSessions& operator=(const LoginSessions&) = delete;
  ~LoginSessions();

  /// Nothing for a process in no session: a system service, or a login that logind was not told of.
  [[nodiscard]] std::optional<std::string> sessionOf(const PeerProcess& process) const;

  /// Calls `changed` first with the session as it is, then for each change until it has ended. A
  /// session that does not exist has ended.
  WatchID watch(const std::string& session, Changed changed);
  /// On the bus's thread, `changed` is not called any more. On another, it may be until the bus's
  /// thread has heard of it, which is before whatever is posted there afterwards.
  void unwatch(WatchID watch);

 private:
  SystemBus& bus_;
  const SessionLookup lookup_;
  std::shared_ptr<SessionWatches> watches_;
};

}  // namespace platform::system
