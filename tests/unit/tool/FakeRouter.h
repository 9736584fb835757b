// SPDX-License-Identifier: Apache-2.0

// A router played by a test while a command routes and waits.
//
// Threading: plays on a thread of its own, from the first start request on.
// Ownership: the platform must outlive it.
// Errors: the test fails if no request arrives.
// Order: the destructor waits until the script has been played.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "platform/scripted/ScriptedPlatform.h"

namespace tool {

class FakeRouter {
 public:
  using Script = std::function<void(platform::ScriptedConnection&)>;

  FakeRouter(platform::ScriptedPlatform& platform, Script script)
      : platform_(platform), thread_([this, script = std::move(script)] {
          if (isAsked()) script(*platform_.connection(1));
        }) {}
  ~FakeRouter() { thread_.join(); }
  FakeRouter(const FakeRouter&) = delete;
  FakeRouter& operator=(const FakeRouter&) = delete;

 private:
  /// The request appears in the trace a moment before it can be answered.
  bool isAsked() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (platform_.connectionCount() == 0 || platform_.connection(1)->pendingRequests() == 0) {
      std::this_thread::yield();
      if (std::chrono::steady_clock::now() > deadline) {
        ADD_FAILURE() << "no start request has arrived";
        return false;
      }
    }
    return true;
  }

  platform::ScriptedPlatform& platform_;
  std::thread thread_;
};

}  // namespace tool
