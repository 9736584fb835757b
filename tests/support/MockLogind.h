// SPDX-License-Identifier: Apache-2.0

// A logind on a test's bus, with the sessions that the test wants.
//
// Threading: any thread.
// Ownership: the test's bus outlives it. Its end is logind's.
// Order: a signal is on its way when the call that causes it returns.
#pragma once

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <cstddef>
#include <map>
#include <string>

#include "platform/system/SystemBus.h"

namespace testsupport {

class MockLogind {
 public:
  struct Session {
    uid_t user = 1000;
    std::string state = "active";
    bool isActive = true;
    bool isLocked = false;
    bool isRemote = false;
    bool lacksState = false;  ///< which the real one never does
    bool isMute = false;      ///< it does not answer
  };

  explicit MockLogind(const std::string& address);
  MockLogind(const MockLogind&) = delete;
  MockLogind& operator=(const MockLogind&) = delete;

  /// Without a signal.
  void set(const std::string& id, const Session& session);
  /// With a signal that names the properties that logind would name.
  void setActive(const std::string& id, bool isActive);
  void setLocked(const std::string& id, bool isLocked);
  void remove(const std::string& id);
  /// How many descriptions of sessions it was asked for.
  [[nodiscard]] std::size_t asked() const { return asked_; }

  /// Sends such a signal to everybody, or only to the one named; from this connection, which need
  /// not be the one that has logind's name.
  void signalActive(const std::string& id, bool isActive, const char* destination = nullptr);
  void signalRemoved(const std::string& id, const char* destination = nullptr);

  /// A signal that means nothing, after all others.
  void signalDone(const char* destination);

  /// A connection that pretends to be logind, but does not have its name.
  struct Impostor {};
  MockLogind(const std::string& address, Impostor impostor);

 private:
  struct Handlers;

  int describe(sd_bus_message* call);
  void signalChange(const std::string& id, const char* property, bool value,
                    const char* destination);

  std::atomic<std::size_t> asked_{0};
  std::map<std::string, Session> sessions_;  ///< on the connection's thread
  platform::system::SystemBus bus_;
};

}  // namespace testsupport
