// SPDX-License-Identifier: Apache-2.0

// What codes mean, in words for people. The command uses the same ones.
//
// Threading: any thread.
// Errors: none; what has no words is given as numbers.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "WLHIDAccess/WLHIDEventRouterClientDelegate.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/NSError.h"

namespace wlhid {

/// Why something did not work: `what()` is a sentence that says what happened and what to do.
class WLHID_EXPORT Error : public std::runtime_error {
 public:
  Error(std::string domain, std::int64_t code, const std::string& text)
      : std::runtime_error(text), domain_(std::move(domain)), code_(code) {}
  /// The same error. Null is an error without a reason.
  explicit Error(const std::shared_ptr<platform::NSError>& error);

  [[nodiscard]] const std::string& domain() const { return domain_; }
  [[nodiscard]] std::int64_t code() const { return code_; }

 private:
  std::string domain_;
  std::int64_t code_ = 0;
};

/// Of this layer's own errors.
inline constexpr const char* kErrorDomain = "WLHIDInputErrorDomain";
/// Their codes.
enum class ErrorCode : std::int64_t {
  NoAnswer = 1,    ///< the router has not answered in time
  NotThere = 2,    ///< no router serves applications here
  BadAnswer = 3,   ///< it has answered something else
  NotChanged = 4,  ///< there was nothing to remove, or it could not be removed
};

/// "X", "Button 3", "Left Shift"; "ff00/0021" (page and usage in hexadecimal) if it has no common
/// name.
[[nodiscard]] WLHID_EXPORT std::string usageName(std::uint32_t usagePage, std::uint32_t usage);

/// "idle", "router not installed", "opening", "failed", "routing"
[[nodiscard]] WLHID_EXPORT std::string statusName(WLHIDEventRouterClientStatus status);

}  // namespace wlhid
