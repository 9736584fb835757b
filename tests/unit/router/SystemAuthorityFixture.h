// SPDX-License-Identifier: Apache-2.0

// The system's authority, with everything that it asks in the test's hands. What happens is noted
// in events.
//
// Threading: the test's thread.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "router/policy/SystemAuthority.h"

namespace systemauthoritytest {

using platform::system::PeerProcess;
using platform::system::PolkitAnswer;
using platform::system::PolkitClient;
using platform::system::PolkitQuestion;
using platform::system::SessionState;
using router::DeviceClass;
using router::Pending;
using router::RoutingRecord;
using testing::ElementsAre;
using testing::HasSubstr;
using Events = std::vector<std::string>;

/// Says that it has ended, if it ends before it is told not to.
class NotedPending final : public Pending {
 public:
  explicit NotedPending(std::function<void()> ended) : ended_(std::move(ended)) {}
  NotedPending(const NotedPending&) = delete;
  NotedPending& operator=(const NotedPending&) = delete;
  ~NotedPending() override { ended_(); }

 private:
  const std::function<void()> ended_;
};

class SystemAuthorityTest : public testing::Test {
 protected:
  SystemAuthorityTest() {
    sources_.device = [this](const router::DeviceDescription&) { return device_; };
    sources_.isGranted = [this](uid_t user, const platform::DeviceIdentity& identity) {
      return user == ::geteuid() && identity == granted_;
    };
    sources_.sessionOf = [this](const PeerProcess&) { return session_; };
    sources_.watchSession = [this](const std::string& session,
                                   platform::system::LoginSessions::Changed changed) {
      add("session " + session);
      changed_ = std::move(changed);
      if (first_) changed_(*first_);
      return std::make_unique<NotedPending>([] {});
    };
    sources_.askPolkit = [this](PolkitQuestion question, PolkitClient::Answered answered) {
      const std::string action = question.action.substr(question.action.rfind('.') + 1);
      add("ask " + action + (question.mayAskPerson ? " of a person" : ""));
      questions_.push_back(std::move(question));
      const std::size_t number = answered_.size();
      answered_.push_back(std::move(answered));
      isOpen_.push_back(true);
      if (!answers_.empty()) {
        const PolkitAnswer answer = answers_.front();
        answers_.erase(answers_.begin());
        say(number, answer);
      }
      return std::make_unique<NotedPending>([this, number] {
        if (isOpen_[number]) add("withdrawn");
        isOpen_[number] = false;
      });
    };
    sources_.record = [this](const RoutingRecord& record) {
      const char* const names[] = {"granted", "denied", "begun", "revoked", "ended"};
      add(std::string(names[static_cast<int>(record.kind)]) +
          (record.reason.empty() ? "" : ": " + record.reason));
    };
    sources_.now = [this] { return now_; };
  }

  static SessionState inFront() { return {"c1", 1000, true, false, false, false}; }
  static PolkitAnswer yes() { return {PolkitAnswer::Kind::Yes, false, ""}; }
  static PolkitAnswer no() { return {PolkitAnswer::Kind::No, false, "polkit says no"}; }
  static PolkitAnswer needsPerson() { return {PolkitAnswer::Kind::No, true, "nobody to ask"}; }

  void add(std::string event) { events_.push_back(std::move(event)); }
  Events takeEvents() { return std::exchange(events_, {}); }
  void say(std::size_t number, const PolkitAnswer& answer) {
    isOpen_[number] = false;
    answered_[number](answer);
  }
  void sayLast(const PolkitAnswer& answer) { say(answered_.size() - 1, answer); }

  void makeAuthority() {
    if (authority_ != nullptr) return;
    authority_ = std::make_unique<router::SystemAuthority>(sources_);
    std::string whyNot;
    auto process = PeerProcess::ofProcess(::getpid(), ::geteuid(), {}, whyNot);
    ASSERT_TRUE(process.has_value()) << whyNot;
    caller_ = authority_->callerFor(*process);
  }
  std::unique_ptr<router::RoutingPermit> ask(router::DeviceMode mode = router::DeviceMode::Shared) {
    router::RoutingRequest request;
    request.mode = mode;
    return ask(std::move(request));
  }
  std::unique_ptr<router::RoutingPermit> preview() {
    router::RoutingRequest request;
    request.isPreview = true;
    return ask(std::move(request));
  }
  std::unique_ptr<router::RoutingPermit> askToEnd(std::uint64_t session) {
    makeAuthority();
    return caller_->askToEnd(session, [this](const router::RoutingAnswer& answer) {
      add(answer.isAllowed ? "may end" : "may not: " + answer.reason);
    });
  }
  std::unique_ptr<router::RoutingPermit> ask(router::RoutingRequest request) {
    makeAuthority();
    request.device.registryEntryID = 0x10007;
    request.device.name = "Pen \"x\" $(y)";
    request.device.vendor = 0x56a;
    request.device.product = 0x2f;
    return caller_->ask(
        request,
        [this](const router::RoutingAnswer& answer) {
          reports_ = answer.reports;
          needsPerson_ = answer.needsPerson;
          add(answer.isAllowed
                  ? "allowed"
                  : (answer.isGone ? "refused, as it is gone: " : "refused: ") + answer.reason);
        },
        [this](const std::string& reason) { add("told: " + reason); });
  }

  router::AuthoritySources sources_;
  /// X in report 1, Y in report 2.
  std::optional<router::RoutableDevice> device_{router::RoutableDevice{
      {3, 0x56a, 0x2f, ""},
      {DeviceClass::Ordinary, "", {}},
      std::make_shared<const router::ReportDescriptor>(
          router::ReportDescriptor::parse(std::vector<std::uint8_t>{
              0x05, 0x01, 0x09, 0x05, 0xa1, 0x01, 0x85, 0x01, 0x75, 0x08, 0x95, 0x01,
              0x09, 0x30, 0x81, 0x02, 0x85, 0x02, 0x09, 0x31, 0x81, 0x02, 0xc0}))}};
  platform::DeviceIdentity granted_;
  std::optional<std::string> session_ = "c1";
  std::optional<SessionState> first_ = inFront();
  std::vector<PolkitAnswer> answers_;  // given within the question
  platform::system::LoginSessions::Changed changed_;
  std::vector<PolkitQuestion> questions_;
  std::vector<PolkitClient::Answered> answered_;
  std::vector<bool> isOpen_;
  router::ReportIDs reports_;
  bool needsPerson_ = false;
  router::QuestionLine::Clock::time_point now_{std::chrono::seconds(100'000)};
  Events events_;
  std::unique_ptr<router::SystemAuthority> authority_;
  std::shared_ptr<router::RoutingCaller> caller_;
};

}  // namespace systemauthoritytest
