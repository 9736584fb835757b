// SPDX-License-Identifier: Apache-2.0

// Does something with each report of a routing session, for as long as it lives.
//
// Threading: the handler runs on the framework's threads, one call at a time.
// Order: the destructor waits for a handler that still runs; afterwards none does.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "tool/routing/DeliveryLines.h"

namespace tool {

class ReportWatch {
 public:
  struct Report {
    std::uint64_t number = 0;  ///< from 1 since the routing began
    std::span<const std::uint8_t> bytes;
  };
  /// May append lines to print.
  using Handler = std::function<void(std::string& out, const Report& report)>;

  explicit ReportWatch(Handler handler);
  ~ReportWatch();
  ReportWatch(const ReportWatch&) = delete;
  ReportWatch& operator=(const ReportWatch&) = delete;

  /// For a session, which may outlive this object.
  [[nodiscard]] std::unique_ptr<DeliveryLines> lines() const;
  /// While it is held, the handler does not run.
  [[nodiscard]] std::unique_lock<std::mutex> lock() const;

 private:
  class Lines;
  struct State {
    std::mutex mutex;
    Handler handler;
    std::uint64_t reports = 0;
  };
  const std::shared_ptr<State> state_;
};

}  // namespace tool
