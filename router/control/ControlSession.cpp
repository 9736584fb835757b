// SPDX-License-Identifier: Apache-2.0

#include "router/control/ControlSession.h"

#include <optional>
#include <string>
#include <utility>

#include "router/RouterErrors.h"
#include "router/Session.h"

namespace router {
namespace {

using platform::LogLine;
using Clock = StartLine::Clock;

std::string sessionText(std::uint64_t number) {
  return "session " + std::to_string(number);
}

}  // namespace

void ControlSession::end() {
  question_ = nullptr;
  devices_ = nullptr;
  timeIsUp_ = {};
}

void ControlSession::onQueue(std::function<void(ControlSession&)> work) {
  connection().callOnQueue([weak = weak_from_this(), work = std::move(work)] {
    if (const auto self = weak.lock()) work(*self);
  });
}

void ControlSession::statusWithReply(Reply reply) {
  if (const auto error = refusal()) return reply(nullptr, error);
  const auto shown = user() == 0 ? std::nullopt : std::optional(user());
  reply(dictionaryOf(parts().sessions->status(shown)), nullptr);
}

void ControlSession::devicesWithReply(Reply reply) {
  if (const auto error = refusal()) return reply(nullptr, error);
  if (devices_ != nullptr)
    return reply(nullptr, routerError(IOReturn::Busy, "the devices are being listed already"));
  auto devices = classified(parts().authority.get(), parts().devices->list());
  if (caller() == nullptr) return reply(dictionaryOf(devices), nullptr);
  devices_ = std::make_shared<DeviceInquiry>(
      std::move(devices),
      [weak = weak_from_this(), reply](const std::vector<ListedDevice>& answered) {
        const auto self = weak.lock();
        if (self == nullptr) return;
        self->onQueue([reply, list = dictionaryOf(answered)](ControlSession& session) {
          session.devices_ = nullptr;
          session.timeIsUp_ = {};
          reply(list, nullptr);
        });
      });
  devices_->begin(*caller());
  timeIsUp_ = parts().startLine->waitUntil(Clock::now() + parts().limits.controlTimeout,
                                           [weak = std::weak_ptr(devices_)] {
                                             if (const auto inquiry = weak.lock())
                                               inquiry->finish();
                                           });
}

void ControlSession::endSession_reply(std::uint64_t number, EndReply reply) {
  if (const auto error = refusal()) return reply(error);
  const auto session = parts().sessions->withNumber(number);
  const bool isOwn = session != nullptr && session->user() == user();
  if (isOwn || user() == 0) return endNow(number, reply);
  // From here on nothing may depend on whether there is such a session.
  if (caller() == nullptr)
    return takeDecision(number, reply, {false, "not permitted: this root is not yours", {}});
  if (std::exchange(isAsking_, true))
    return reply(routerError(IOReturn::Busy, "another question of yours is still open"));
  question_ = caller()->askToEnd(
      number, [weak = weak_from_this(), number, reply](const RoutingAnswer& answer) {
        const auto self = weak.lock();
        if (self == nullptr) return;
        self->onQueue([number, reply, answer](ControlSession& asking) {
          asking.isAsking_ = false;
          asking.question_ = nullptr;
          asking.takeDecision(number, reply, answer);
        });
      });
}

void ControlSession::arrivalsOfDevice_reply(std::uint64_t registryEntryID, Reply reply) {
  if (const auto error = refusal()) return reply(nullptr, error);
  std::optional<ReportArrivals> youngest;
  for (const auto& session : parts().sessions->all()) {
    if (session->process() != process() || session->user() != user()) continue;
    if (auto arrivals = session->arrivalsOf(registryEntryID)) youngest = std::move(arrivals);
  }
  if (youngest) return reply(dictionaryOf(*youngest), nullptr);
  reply(nullptr, routerError(IOReturn::NotFound, "this process does not route the device"));
}

void ControlSession::takeDecision(std::uint64_t number, const EndReply& reply,
                                  const RoutingAnswer& answer) {
  if (answer.isAllowed) return endNow(number, reply);
  parts().log(user(), LogLine::of<row::endRefused>(process(), user(), number, answer.reason));
  reply(routerError(
      IOReturn::NotPermitted,
      sessionText(number) + " is not one of yours; ending another user's is " + answer.reason));
}

void ControlSession::endNow(std::uint64_t number, const EndReply& reply) {
  const auto session = parts().sessions->withNumber(number);
  if (session == nullptr)
    return reply(routerError(IOReturn::NotFound, "there is no " + sessionText(number)));
  parts().log(user(), LogLine::of<row::sessionEndedFor>(number, session->process(), session->user(),
                                                        process(), user()));
  session->endForGood();
  reply(nullptr);
}

}  // namespace router
