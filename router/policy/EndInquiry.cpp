// SPDX-License-Identifier: Apache-2.0

#include "router/policy/EndInquiry.h"

#include <utility>

#include "platform/system/PromptText.h"

namespace router {
namespace {

class EndPermit final : public RoutingPermit {
 public:
  explicit EndPermit(std::shared_ptr<EndInquiry> inquiry) : inquiry_(std::move(inquiry)) {}
  EndPermit(const EndPermit&) = delete;
  EndPermit& operator=(const EndPermit&) = delete;
  ~EndPermit() override { inquiry_->withdraw(); }

 private:
  const std::shared_ptr<EndInquiry> inquiry_;
};

}  // namespace

std::unique_ptr<RoutingPermit> EndInquiry::begin(std::shared_ptr<const AuthoritySources> sources,
                                                 const std::shared_ptr<QuestionLine>& questions,
                                                 Request request, RoutingCaller::Decided decided) {
  const auto inquiry =
      std::make_shared<EndInquiry>(std::move(sources), std::move(request), std::move(decided));
  inquiry->enter(*questions);
  return std::make_unique<EndPermit>(inquiry);
}

EndInquiry::EndInquiry(std::shared_ptr<const AuthoritySources> sources, Request request,
                       RoutingCaller::Decided decided)
    : sources_(std::move(sources)), request_(std::move(request)), decided_(std::move(decided)) {}

void EndInquiry::enter(QuestionLine& questions) {
  const auto weak = weak_from_this();
  auto place = questions.enter(request_.caller.user(), {[weak] {
                                                          if (const auto self = weak.lock())
                                                            self->ask();
                                                        },
                                                        [weak](const std::string& reason) {
                                                          if (const auto self = weak.lock())
                                                            self->decide(false, reason);
                                                        }});
  if (place == nullptr) return;
  QuestionLine::Place* const entered = place.get();
  {
    const std::lock_guard lock(mutex_);
    held_.place = std::move(place);
  }
  entered->begin();
}

void EndInquiry::ask() {
  auto pending = sources_->askPolkit(
      question(), [weak = weak_from_this()](const platform::system::PolkitAnswer& answer) {
        if (const auto self = weak.lock()) self->answered(answer);
      });
  const std::lock_guard lock(mutex_);
  if (!isOver_) held_.answer.swap(pending);
}

void EndInquiry::answered(const platform::system::PolkitAnswer& answer) {
  std::unique_ptr<QuestionLine::Place> place;
  {
    const std::lock_guard lock(mutex_);
    place = std::move(held_.place);
  }
  if (place != nullptr) place->answered(answerOf(answer));
  decide(answer.isYes(), answer.reason);
}

void EndInquiry::decide(bool isAllowed, const std::string& reason) {
  Held held;
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(isOver_, true)) return;
    held = std::exchange(held_, {});
  }
  decided_({isAllowed, isAllowed ? std::string() : "not permitted: " + reason, {}});
}

void EndInquiry::withdraw() {
  Held held;
  const std::lock_guard lock(mutex_);
  isOver_ = true;
  held = std::exchange(held_, {});
}

platform::system::PolkitQuestion EndInquiry::question() const {
  using platform::system::quotedPromptText;
  platform::system::PolkitQuestion question{request_.caller, std::string(kEndSessionAction)};
  const std::string session = std::to_string(request_.session);
  question.details = {{"session", session}, {"program", request_.caller.program()}};
  question.message = platform::system::withoutPlaceholders(
      "The program " + quotedPromptText(request_.caller.program()) + " wants to end session " +
      session + " of the HID event router, which is not one of yours.");
  question.mayAskPerson = true;
  return question;
}

}  // namespace router
