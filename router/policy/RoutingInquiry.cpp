// SPDX-License-Identifier: Apache-2.0

#include "router/policy/RoutingInquiry.h"

#include <utility>

#include "platform/foundation/Format.h"
#include "platform/system/PromptText.h"

namespace router {
namespace {

using platform::stringWithFormat;
using platform::system::PolkitAnswer;
using platform::system::PolkitQuestion;
using platform::system::SessionState;

std::string whyNotInFront(const SessionState& state) {
  if (state.hasEnded) return "the login session has ended";
  if (state.isLocked) return "the login session is locked";
  return "the login session is not active";
}

const char* nameOf(DeviceClass deviceClass) {
  return deviceClass == DeviceClass::Ordinary ? "ordinary" : "sensitive";
}

}  // namespace

RoutingInquiry::RoutingInquiry(std::shared_ptr<const AuthoritySources> sources,
                               std::shared_ptr<QuestionLine> questions,
                               platform::system::PeerProcess caller, RoutingRequest request,
                               RoutingCaller::Decided decided, RoutingCaller::Revoked revoked)
    : sources_(std::move(sources)),
      questions_(std::move(questions)),
      caller_(std::move(caller)),
      request_(std::move(request)),
      decided_(std::move(decided)),
      revoked_(std::move(revoked)) {}

void RoutingInquiry::begin() {
  auto device = request_.isPreview ? sources_->shownDevice(request_.device)
                                   : sources_->device(request_.device);
  if (!device) return deny({.reason = "the device has gone away", .isGone = true});
  device_ = std::move(*device);
  const bool isGranted = sources_->isGranted(caller_.user(), device_.identity);
  plan_ = planFor(device_, request_.mode, request_.usages, isGranted);
  restsOnGrant_ = isGranted && plan_ != planFor(device_, request_.mode, request_.usages, false);
  const auto session = sources_->sessionOf(caller_);
  if (!session) return askNext();
  auto watch =
      sources_->watchSession(*session, [weak = weak_from_this()](const SessionState& state) {
        if (const auto self = weak.lock()) self->sessionChanged(state);
      });
  const std::lock_guard lock(mutex_);
  if (phase_ != Phase::Over) held_.session.swap(watch);
}

void RoutingInquiry::sessionChanged(const SessionState& state) {
  if (!state.isInFront()) return lose(whyNotInFront(state));
  bool isAwaited = false;
  {
    const std::lock_guard lock(mutex_);
    isAwaited = phase_ == Phase::Waiting;
  }
  if (isAwaited) askNext();
}

void RoutingInquiry::review() {
  if (!restsOnGrant_ || sources_->isGranted(caller_.user(), device_.identity)) return;
  lose("the administrator's grant no longer stands");
}

void RoutingInquiry::askNext() {
  {
    const std::lock_guard lock(mutex_);
    if (phase_ == Phase::Over) return;
    phase_ = Phase::Asking;
  }
  ask(Asks::Rules);
}

void RoutingInquiry::ask(Asks whom) {
  std::uint64_t number = 0;
  {
    const std::lock_guard lock(mutex_);
    if (phase_ != Phase::Asking) return;
    number = ++asked_;
  }
  auto pending = sources_->askPolkit(
      question(whom), [weak = weak_from_this(), number, whom](const PolkitAnswer& answer) {
        if (const auto self = weak.lock()) self->answered(number, whom, answer);
      });
  const std::lock_guard lock(mutex_);
  if (phase_ == Phase::Asking && asked_ == number) held_.answer.swap(pending);
}

void RoutingInquiry::answered(std::uint64_t number, Asks whom, const PolkitAnswer& answer) {
  std::unique_ptr<QuestionLine::Place> place;
  bool isLast = false;
  {
    const std::lock_guard lock(mutex_);
    if (phase_ != Phase::Asking || asked_ != number) return;
    ++asked_;  // an answer counts once
    place = std::move(held_.place);
    if (answer.isYes()) isLast = ++permitted_ == plan_.actions.size();
  }
  if (place != nullptr) place->answered(answerOf(answer));
  if (answer.isYes()) return isLast ? allow() : ask(Asks::Rules);
  const bool needsPerson = whom == Asks::Rules && answer.needsPerson;
  if (needsPerson && !request_.isPreview) return waitForPerson();
  deny({.reason = answer.reason, .needsPerson = needsPerson});
}

void RoutingInquiry::waitForPerson() {
  const auto weak = weak_from_this();
  auto place = questions_->enter(caller_.user(), {[weak] {
                                                    if (const auto self = weak.lock())
                                                      self->ask(Asks::Person);
                                                  },
                                                  [weak](const std::string& reason) {
                                                    if (const auto self = weak.lock())
                                                      self->deny({.reason = reason});
                                                  }});
  if (place == nullptr) return;
  QuestionLine::Place* const entered = place.get();
  {
    const std::lock_guard lock(mutex_);
    if (phase_ == Phase::Asking) held_.place.swap(place);
  }
  if (place == nullptr) entered->begin();
}

void RoutingInquiry::allow() {
  if (!caller_.isAlive()) return deny({.reason = "the process has ended"});
  std::unique_ptr<Pending> answer;
  {
    const std::lock_guard lock(mutex_);
    if (phase_ != Phase::Asking) return;
    phase_ = Phase::Allowed;
    answer = std::move(held_.answer);
  }
  record(RoutingRecord::Kind::Granted, {});
  decided_({true, {}, plan_.reports});
}

void RoutingInquiry::deny(const RoutingAnswer& answer) {
  Held held;
  {
    const std::lock_guard lock(mutex_);
    if (phase_ == Phase::Over || phase_ == Phase::Allowed) return;
    held = endLocked(Phase::Over);
  }
  tellDenied(answer);
}

void RoutingInquiry::lose(const std::string& reason) {
  Held held;
  Phase before{};
  {
    const std::lock_guard lock(mutex_);
    before = phase_;
    if (before == Phase::Over) return;
    held = endLocked(Phase::Over);
  }
  if (before != Phase::Allowed) return tellDenied({.reason = reason});
  record(RoutingRecord::Kind::Revoked, reason);
  revoked_(reason);
}

void RoutingInquiry::tellDenied(RoutingAnswer answer) const {
  record(RoutingRecord::Kind::Denied, answer.reason);
  if (!answer.isGone) answer.reason.insert(0, "not permitted: ");
  answer.reports = {};
  decided_(answer);
}

void RoutingInquiry::noteBeginning() {
  {
    const std::lock_guard lock(mutex_);
    if (phase_ != Phase::Allowed) return;
  }
  record(RoutingRecord::Kind::Begun, {});
}

void RoutingInquiry::withdraw() {
  Held held;
  bool wasAllowed = false;
  {
    const std::lock_guard lock(mutex_);
    wasAllowed = phase_ == Phase::Allowed;
    held = endLocked(Phase::Over);
  }
  if (wasAllowed) record(RoutingRecord::Kind::Ended, {});
}

RoutingInquiry::Held RoutingInquiry::endLocked(Phase phase) {
  phase_ = phase;
  return std::exchange(held_, {});
}

PolkitQuestion RoutingInquiry::question(Asks whom) const {
  using platform::system::quotedPromptText;
  const std::string_view action = plan_.actions.at(permitted_);
  const std::string vendor = stringWithFormat("%04x", request_.device.vendor);
  const std::string product = stringWithFormat("%04x", request_.device.product);
  const char* const wish = action == kTakeExclusivelyAction
                               ? "take the device %s (%s:%s) from all other programs"
                               : "receive the input of the device %s (%s:%s)";
  const char* const warning = action == kRouteSensitiveAction
                                  ? " It can carry what is typed on it, passwords included."
                                  : "";
  PolkitQuestion question{caller_, std::string(action)};
  question.details = {{"vendor", vendor},
                      {"product", product},
                      {"name", request_.device.name},
                      {"class", nameOf(device_.classification.deviceClass)},
                      {"program", caller_.program()}};
  question.message = platform::system::withoutPlaceholders(
      "The program " + quotedPromptText(caller_.program()) + " wants to " +
      stringWithFormat(wish, quotedPromptText(request_.device.name), vendor, product) + "." +
      warning);
  question.mayAskPerson = whom == Asks::Person;
  return question;
}

void RoutingInquiry::record(RoutingRecord::Kind kind, const std::string& reason) const {
  if (request_.isPreview) return;
  sources_->record({kind, &caller_, &request_.device, device_.classification.deviceClass, reason});
}

}  // namespace router
