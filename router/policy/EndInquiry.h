// SPDX-License-Identifier: Apache-2.0

// The question whether a caller may end a session of another user.
//
// It says nothing about that session, not even whether it exists: the caller reads the question,
// and is told nothing of other users before it is permitted.
//
// Threading: any thread; the answer comes on any, possibly before begin() returns. No lock is held.
// Ownership: the permit holds the question; dropping it withdraws it.
// Order: the answer comes once. A person sees one question at a time (QuestionLine.h).
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "platform/system/PeerProcess.h"
#include "router/policy/QuestionLine.h"
#include "router/policy/RoutingAuthority.h"
#include "router/policy/SystemAuthority.h"

namespace router {

inline constexpr std::string_view kEndSessionAction = "com.quillmar.hideventrouter.end-session";

class EndInquiry : public std::enable_shared_from_this<EndInquiry> {
 public:
  struct Request {
    platform::system::PeerProcess caller;
    std::uint64_t session = 0;
  };

  [[nodiscard]] static std::unique_ptr<RoutingPermit> begin(
      std::shared_ptr<const AuthoritySources> sources,
      const std::shared_ptr<QuestionLine>& questions, Request request,
      RoutingCaller::Decided decided);
  EndInquiry(std::shared_ptr<const AuthoritySources> sources, Request request,
             RoutingCaller::Decided decided);
  void withdraw();

 private:
  struct Held {
    std::unique_ptr<QuestionLine::Place> place;
    std::unique_ptr<Pending> answer;
  };

  void enter(QuestionLine& questions);
  void ask();
  void answered(const platform::system::PolkitAnswer& answer);
  void decide(bool isAllowed, const std::string& reason);
  [[nodiscard]] platform::system::PolkitQuestion question() const;

  const std::shared_ptr<const AuthoritySources> sources_;
  const Request request_;
  const RoutingCaller::Decided decided_;
  std::mutex mutex_;
  bool isOver_ = false;
  Held held_;
};

}  // namespace router
