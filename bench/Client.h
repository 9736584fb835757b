// SPDX-License-Identifier: Apache-2.0

// The client side of a measurement: real clients, on a platform that reports the router as
// installed.
//
// Threading: BenchPlatform is set up once, on the main thread.
// Ownership: it restores what it replaced.
// Errors: std::runtime_error.
#pragma once

#include <memory>
#include <string>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "bench/Router.h"
#include "platform/foundation/FoundationProvider.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/services/ServiceManagement.h"

namespace bench {

/// Answers the presence check with YES from memory and connects every service name to one socket.
class BenchPlatform {
 public:
  explicit BenchPlatform(std::string endpoint);
  BenchPlatform(const BenchPlatform&) = delete;
  BenchPlatform& operator=(const BenchPlatform&) = delete;
  ~BenchPlatform();

 private:
  std::shared_ptr<platform::FoundationProvider> foundation_;
  std::shared_ptr<platform::ServicesProvider> services_;
  std::shared_ptr<platform::ServiceEndpoints> endpoints_;
};

[[nodiscard]] std::shared_ptr<WLHIDEventRouterClient> clientFor(const Job& job);

/// Returns when every connection of this process has ended, or throws after 30 s.
void waitForConnectionsToEnd();

}  // namespace bench
