// SPDX-License-Identifier: Apache-2.0

// Waits for what a router says about itself.
//
// Threading: any thread.
// Errors: a failed expectation if it does not come about.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>

#include "router/RouterStatus.h"

namespace testsupport {

/// The status as soon as it is as wanted; the last one if it does not become so in time.
inline router::RouterStatus awaitRouterStatus(
    const platform::SystemRoot& root, std::chrono::seconds patience,
    const std::function<bool(const router::RouterStatus&)>& isWanted) {
  const auto directory = router::routerStatusFile(root).parent_path();
  std::filesystem::create_directories(directory);
  const int watch = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  EXPECT_GE(::inotify_add_watch(watch, directory.c_str(), IN_MOVED_TO), 0);
  const auto deadline = std::chrono::steady_clock::now() + patience;
  std::optional<router::RouterStatus> status;
  for (;;) {
    status = router::readRouterStatus(root);
    if ((status && isWanted(*status)) || std::chrono::steady_clock::now() >= deadline) break;
    pollfd poll{watch, POLLIN, 0};
    ::poll(&poll, 1, static_cast<int>(std::chrono::milliseconds(patience).count()));
    std::array<char, 4096> events{};
    while (::read(watch, events.data(), events.size()) > 0) {
    }
  }
  ::close(watch);
  EXPECT_TRUE(status && isWanted(*status)) << "the status did not become as wanted";
  return status.value_or(router::RouterStatus());
}

}  // namespace testsupport
