// SPDX-License-Identifier: Apache-2.0

// What a client's delegate receives, as text: one line per delivery, with its line feed, appended
// to the caller's string. An implementation that only watches appends nothing.
//
// Threading: any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"
#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSError.h"

namespace tool {

class DeliveryLines {
 public:
  virtual ~DeliveryLines() = default;
  virtual void appendStatus(std::string& out, WLHIDEventRouterClientStatus status) = 0;
  virtual void appendError(std::string& out, const platform::NSError& error) = 0;
  virtual void appendReport(std::string& out, std::span<const std::uint8_t> bytes,
                            std::uint32_t reportID) = 0;
  virtual void appendElementValues(std::string& out, const platform::NSArray& elementValues) = 0;
  /// Nothing more will come, for a reason that is not a failure.
  virtual void appendEnd(std::string& out, const std::string& reason) = 0;
};

/// One JSON object per line:
///   {"status":4}
///   {"report":{"id":1,"data":"01ff"}}
///   {"elements":[{"reportID":1,"usagePage":1,"usage":48,"cookie":3,"integerValue":-5,"bytes":"fb"}]}
///   {"error":{"domain":"…","code":-1,"description":"…"}}
///   {"ended":"…"}
[[nodiscard]] std::unique_ptr<DeliveryLines> jsonDeliveryLines();

/// For people: seconds since construction, the kind of delivery, and values by the names of their
/// usages. Released keys and buttons are left out, and long runs of vendor-defined values are only
/// counted. `clock` may count from any point; `columns` is the maximum width of a line, 0 for
/// unlimited: longer lines are wrapped.
[[nodiscard]] std::unique_ptr<DeliveryLines> textDeliveryLines(
    std::function<std::chrono::microseconds()> clock, std::function<std::size_t()> columns);

}  // namespace tool
