// SPDX-License-Identifier: Apache-2.0

// Resolves one service's name to one socket.
//
// Threading: any thread.
// Errors: reported as outcomes.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <string_view>
#include <utility>

#include "platform/services/ServiceEndpoints.h"

namespace testsupport {

class OneEndpoint final : public platform::ServiceEndpoints {
 public:
  using Outcome = platform::ServiceConnectResult::Outcome;

  /// `failure` is the outcome for a socket that accepts no connection.
  OneEndpoint(std::string_view name, std::string path, Outcome failure = Outcome::UnknownName)
      : name_(name), path_(std::move(path)), failure_(failure) {}
  platform::ServiceConnectResult connectToService(std::string_view service) override {
    asked.fetch_add(1);
    if (refusals.load() > 0 && refusals.fetch_sub(1) > 0) return {Outcome::TryAgain, -1, "busy"};
    if (service != name_) return {Outcome::UnknownName, -1, "no such service"};
    const int descriptor =
        platform::connectUnixSocket(path_, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (descriptor < 0 && errno == EAGAIN)
      return {Outcome::TryAgain, -1, "the endpoint's backlog is full"};
    if (descriptor < 0) return {failure_, -1, "the endpoint takes no connection"};
    return {Outcome::Connected, descriptor, ""};
  }

  std::atomic<int> asked{0};
  std::atomic<int> refusals{0};

 private:
  const std::string name_;
  const std::string path_;
  const Outcome failure_;
};

}  // namespace testsupport
