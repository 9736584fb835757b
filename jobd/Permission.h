// SPDX-License-Identifier: Apache-2.0

// Permission to change a job: who decides, and what it covers.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "platform/services/Control.h"
#include "platform/services/UnixSocket.h"

namespace jobd {

/// Decides whether the caller, as identified by the kernel, may change the job. Answers once, now
/// or later: on a system root a person may be asked first.
using Authority =
    std::function<void(const platform::PeerCredentials& caller, const std::string& label,
                       const std::function<void(bool mayChange)>& decided)>;

/// What one authorization covers: one removal of a job and then one bless of it.
class Permission {
 public:
  explicit Permission(std::string label) : label_(std::move(label)) {}

  /// Whether it covers the request. Asking uses it up.
  bool use(const platform::ControlRequest& request) {
    using Operation = platform::ControlRequest::Operation;
    if (request.label != label_) return false;
    if (request.operation == Operation::Remove) return std::exchange(coversRemove_, false);
    if (request.operation != Operation::Bless) return false;
    coversRemove_ = false;
    return std::exchange(coversBless_, false);
  }
  [[nodiscard]] bool isUsedUp() const { return !coversBless_; }

 private:
  std::string label_;
  bool coversRemove_ = true;
  bool coversBless_ = true;
};

}  // namespace jobd
