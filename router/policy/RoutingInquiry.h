// SPDX-License-Identifier: Apache-2.0

// One start request on its way through the system's authorities, and the permission at its end.
//
// Threading: any thread; callbacks of the sources come on theirs. No lock is held across a call.
// Ownership: the permit holds it; what it asks refers to it weakly.
// Order: as in SystemAuthority.h. After withdraw() nothing is told any more, except what is being
//   told just then.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "platform/system/LoginSessions.h"
#include "platform/system/PeerProcess.h"
#include "platform/system/PolkitClient.h"
#include "router/policy/QuestionLine.h"
#include "router/policy/RoutingAuthority.h"
#include "router/policy/RoutingPlan.h"
#include "router/policy/SystemAuthority.h"

namespace router {

class RoutingInquiry : public std::enable_shared_from_this<RoutingInquiry> {
 public:
  RoutingInquiry(std::shared_ptr<const AuthoritySources> sources,
                 std::shared_ptr<QuestionLine> questions, platform::system::PeerProcess caller,
                 RoutingRequest request, RoutingCaller::Decided decided,
                 RoutingCaller::Revoked revoked);

  void begin();
  void withdraw();
  /// The input flows from now on.
  void noteBeginning();
  /// After begin(): whether it could not be permitted in the same way without an administrator's
  /// lasting grant.
  [[nodiscard]] bool restsOnGrant() const { return restsOnGrant_; }
  /// Ends if it rests on a grant that no longer stands.
  void review();

 private:
  enum class Phase { Waiting, Asking, Allowed, Over };
  enum class Asks { Rules, Person };

  void sessionChanged(const platform::system::SessionState& state);
  void askNext();
  void ask(Asks whom);
  void answered(std::uint64_t number, Asks whom, const platform::system::PolkitAnswer& answer);
  void waitForPerson();
  void allow();
  /// With a no. The reason is completed.
  void deny(const RoutingAnswer& answer);
  /// Ends the permission, or the hope for it.
  void lose(const std::string& reason);
  void tellDenied(RoutingAnswer answer) const;
  [[nodiscard]] platform::system::PolkitQuestion question(Asks whom) const;
  void record(RoutingRecord::Kind kind, const std::string& reason) const;
  /// Takes what is pending out of the state, to be destroyed without the lock.
  struct Held {
    std::unique_ptr<Pending> session;
    std::unique_ptr<Pending> answer;
    std::unique_ptr<QuestionLine::Place> place;
  };
  [[nodiscard]] Held endLocked(Phase phase);

  const std::shared_ptr<const AuthoritySources> sources_;
  const std::shared_ptr<QuestionLine> questions_;
  const platform::system::PeerProcess caller_;
  const RoutingRequest request_;
  const RoutingCaller::Decided decided_;
  const RoutingCaller::Revoked revoked_;
  // Set by begin(), before anything can be told.
  RoutableDevice device_;
  RoutingPlan plan_;
  bool restsOnGrant_ = false;

  std::mutex mutex_;
  Phase phase_ = Phase::Waiting;
  std::size_t permitted_ = 0;  // how many actions of the plan
  std::uint64_t asked_ = 0;    // the latest question's number
  Held held_;
};

}  // namespace router
