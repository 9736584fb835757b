// SPDX-License-Identifier: Apache-2.0

// Receives the log lines of the test's process.
//
// Threading: the sink is called on the thread that logs.
// Ownership: the platform keeps the sink as long as this object lives.
// Order: the lines of each thread stay in order.
#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/foundation/ForwardingFoundationProvider.h"

namespace testsupport {

class LogSink final {
 public:
  explicit LogSink(std::function<void(std::string_view)> sink)
      : previous_(
            platform::foundationProvider().exchange(std::make_shared<Provider>(std::move(sink)))) {}
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;
  ~LogSink() { platform::foundationProvider().exchange(previous_); }

 private:
  struct Provider final : platform::ForwardingFoundationProvider {
    explicit Provider(std::function<void(std::string_view)> sink) : sink_(std::move(sink)) {}
    void log(std::string_view text) override { sink_(text); }

    std::function<void(std::string_view)> sink_;
  };

  std::shared_ptr<platform::FoundationProvider> previous_;
};

}  // namespace testsupport
