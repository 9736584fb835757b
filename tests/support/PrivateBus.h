// SPDX-License-Identifier: Apache-2.0

// A message bus of a test's own, with the limits of the system's: everybody may own every name.
//
// Threading: the test's thread.
// Ownership: owns the daemon, which ends with this object or with the test's thread.
// Errors: throws std::runtime_error if there is no dbus-daemon.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/system/SystemBus.h"
#include "tests/support/TemporaryDirectory.h"

namespace testsupport {

class PrivateBus {
 public:
  PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus();

  [[nodiscard]] const std::string& address() const { return address_; }
  /// All connections are lost.
  void stop();
  /// Returns when the bus can be connected to, at the same address.
  void start();

 private:
  TemporaryDirectory directory_;
  std::string address_;
  pid_t daemon_ = -1;
};

/// Returns when that connection is made.
void waitForConnection(platform::system::SystemBus& bus);

}  // namespace testsupport
