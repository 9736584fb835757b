// SPDX-License-Identifier: Apache-2.0

// The authority of the system's own root.
//
// A caller may have a device if somebody is in front of its login session (the session is active
// and not locked), polkit permits each action of the routing plan, and, where a person must be
// asked, that person says yes. A caller in no session gets what polkit permits anyone. A permission
// ends when the session is no longer in front, and one that needed an administrator's lasting grant
// also when that is taken back; neither is renewed by itself.
//
// Everything unknown is a no: a device that is gone, a session that logind does not know, a process
// that has ended, polkit without an answer.
//
// Threading: any thread. Answers come on the thread of whatever was asked last.
// Ownership: shares what the sources need; permits may outlive the authority.
// Order: the session first, then the actions one by one; a person is asked only after polkit has
//   said that one must be, and one question at a time (QuestionLine.h).
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/services/DeviceGrants.h"
#include "platform/system/LoginSessions.h"
#include "platform/system/PeerProcess.h"
#include "platform/system/PolkitClient.h"
#include "router/policy/QuestionLine.h"
#include "router/policy/RoutingAuthority.h"
#include "router/policy/RoutingPlan.h"

namespace router {

/// Something that goes on until it is destroyed.
class Pending {
 public:
  virtual ~Pending() = default;
};

/// What was decided, for the journal.
struct RoutingRecord {
  enum class Kind { Granted, Denied, Begun, Revoked, Ended };
  Kind kind = Kind::Denied;
  const platform::system::PeerProcess* caller = nullptr;
  const DeviceDescription* device = nullptr;
  DeviceClass deviceClass = DeviceClass::Sensitive;
  std::string reason;  ///< of a denial or revocation
};

/// What decisions are made with. None may wait; callbacks come on any thread, also within the call.
struct AuthoritySources {
  using Clock = QuestionLine::Clock;

  /// Empty if there is no such device any more.
  std::function<std::optional<RoutableDevice>(const DeviceDescription&)> device;
  /// The same for what is only shown; may be a moment old. If it is empty, `device` does it.
  std::function<std::optional<RoutableDevice>(const DeviceDescription&)> shownDevice;
  std::function<bool(uid_t, const platform::DeviceIdentity&)> isGranted;
  std::function<std::unique_ptr<Pending>(platform::system::PolkitQuestion,
                                         platform::system::PolkitClient::Answered)>
      askPolkit;
  std::function<std::optional<std::string>(const platform::system::PeerProcess&)> sessionOf;
  std::function<std::unique_ptr<Pending>(const std::string& session,
                                         platform::system::LoginSessions::Changed)>
      watchSession;
  std::function<void(const RoutingRecord&)> record;
  std::function<Clock::time_point()> now = Clock::now;
};

class GrantedInquiries;

/// What polkit's answer to a question for a person means for the next question.
[[nodiscard]] QuestionLine::Answer answerOf(const platform::system::PolkitAnswer& answer);

class SystemAuthority final : public RoutingAuthority {
 public:
  explicit SystemAuthority(AuthoritySources sources, const QuestionLimits& limits = {});

  [[nodiscard]] std::shared_ptr<RoutingCaller> callerOf(
      const platform::NSXPCConnection& connection) override;
  [[nodiscard]] std::optional<Classification> classOf(
      const DeviceDescription& device) const override;
  /// Ends the permissions that rest on an administrator's grant which no longer stands.
  void review() override;
  [[nodiscard]] bool hasMemories() override;
  [[nodiscard]] std::shared_ptr<RoutingCaller> callerFor(
      platform::system::PeerProcess process) const;

 private:
  const std::shared_ptr<const AuthoritySources> sources_;
  const std::shared_ptr<QuestionLine> questions_;
  const std::shared_ptr<GrantedInquiries> granted_;
};

}  // namespace router
