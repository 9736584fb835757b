// What a client's delegate is told, as lines of text: one line a delivery.
//
// Threading: any thread. Ownership: a line is appended to the caller's string.
// Errors, Order: none; a line ends with a line feed.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"

namespace tool {

class DeliveryLines {
 public:
  virtual ~DeliveryLines() = default;
  virtual void appendStatus(std::string& out, WLHIDEventRouterClientStatus status) = 0;
  virtual void appendError(std::string& out, const platform::NSError& error) = 0;
  virtual void appendReport(std::string& out, std::span<const std::uint8_t> bytes,
                            std::uint32_t reportID) = 0;
  virtual void appendElementValues(std::string& out, const platform::NSArray& elementValues) = 0;
  /// That nothing more comes, for a reason that is no failure.
  virtual void appendEnd(std::string& out, const std::string& reason) = 0;
};

/// One JSON object a line:
///   {"status":4}
///   {"report":{"id":1,"data":"01ff"}}
///   {"elements":[{"reportID":1,"usagePage":1,"usage":48,"cookie":3,"integerValue":-5,"bytes":"fb"}]}
///   {"error":{"domain":"…","code":-1,"description":"…"}}
///   {"ended":"…"}
[[nodiscard]] std::unique_ptr<DeliveryLines> jsonDeliveryLines();

/// For people: seconds since `clock` first answered, what it is, and the values under their usages'
/// names. Keys and buttons that are up are left out, and longer runs of vendor-defined values are
/// counted. `clock` counts from any point; `columns` tells how wide a line may be, 0 for any width:
/// what is longer goes on below.
[[nodiscard]] std::unique_ptr<DeliveryLines> textDeliveryLines(
    std::function<std::chrono::microseconds()> clock, std::function<std::size_t()> columns);

/// "opening", "routing"; "status 7" for a number without a name.
[[nodiscard]] std::string statusName(WLHIDEventRouterClientStatus status);

}  // namespace tool
