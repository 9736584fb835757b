// SPDX-License-Identifier: Apache-2.0

// Permission to change a job: who decides, and what it covers.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "jobd/Caller.h"
#include "platform/services/Control.h"
#include "platform/services/UnixSocket.h"

namespace jobd {

enum class Right {
  Install,
  Remove,
  ReplaceNewer,  ///< to install an older version than the one that is there
  Grant,         ///< to grant a device to a user, and to take that back
};

/// What is to become of a grant.
struct GrantChange {
  platform::DeviceGrant grant;
  bool isRevocation = false;
};

/// A question to the authority.
struct Question {
  platform::PeerCredentials caller;  ///< as the kernel identifies it
  std::string label;
  Right right = Right::Install;
  std::string prompt;  ///< the application's words, to be shown as such; may be anything
  std::optional<GrantChange> change{};  ///< with Right::Grant, always
  /// Null where nobody needs to know. A question whose caller has gone is withdrawn.
  std::shared_ptr<CallerPresence> presence{};
};

struct Decision {
  enum class Kind {
    No,
    Yes,
    Canceled,               ///< the person who was asked dismissed the question
    InteractionNotAllowed,  ///< a person would have to be asked, and nobody can ask one
  };
  Kind kind = Kind::No;
  std::string reason;  ///< for the caller; may be empty
};

using Decided = std::function<void(const Decision& decision)>;

/// Decides whether the caller may change the job. Answers once, now or later: on a system root a
/// person may be asked first.
using Authority = std::function<void(const Question& question, const Decided& decided)>;

/// What one authorization covers: one removal of a job and then, if it is to install, one bless of
/// it.
class Permission {
 public:
  explicit Permission(std::string label,
                      platform::ChangePurpose purpose = platform::ChangePurpose::Install)
      : label_(std::move(label)), coversBless_(purpose == platform::ChangePurpose::Install) {}

  /// Whether it covers the request. Asking uses it up.
  bool use(const platform::ControlRequest& request) {
    using Operation = platform::ControlRequest::Operation;
    if (request.label != label_) return false;
    if (request.operation == Operation::Remove) return std::exchange(coversRemove_, false);
    if (request.operation != Operation::Bless) return false;
    coversRemove_ = coversRemove_ && !coversBless_;
    return std::exchange(coversBless_, false);
  }
  [[nodiscard]] bool isUsedUp() const { return !coversRemove_ && !coversBless_; }

 private:
  std::string label_;
  bool coversRemove_ = true;
  bool coversBless_;
};

}  // namespace jobd
