// SPDX-License-Identifier: Apache-2.0

#include "platform/system/BusCalls.h"

#include <systemd/sd-bus.h>

#include "platform/foundation/PrintableText.h"

namespace platform::system {
namespace {

constexpr std::size_t kMaximumErrorCharacters = 300;
constexpr const char* kUnreachable = "the system bus cannot be reached";

BusReply replyOf(sd_bus_message* message) {
  if (sd_bus_message_is_method_error(message, nullptr) <= 0) return {.message = message};
  const sd_bus_error* const error = sd_bus_message_get_error(message);
  std::string text = error->name != nullptr ? error->name : "an error without a name";
  if (error->message != nullptr) text.append(": ").append(error->message);
  return {.error = printableLine(text, kMaximumErrorCharacters)};
}

}  // namespace

struct BusCalls::Call {
  BusCalls& owner;
  CallID id;
  Compose compose;
  Answered answered;
  SystemBus::TimerID limit;
  BusSlot slot{};
  bool isSent = false;

  static int receive(sd_bus_message* reply, void* call, sd_bus_error* /*unused*/) noexcept {
    const Call& self = *static_cast<const Call*>(call);
    self.owner.answer(self.id, replyOf(reply));
    return 0;
  }
};

BusCalls::BusCalls(SystemBus& bus, std::size_t window)
    : bus_(bus), window_(window), listener_(bus.listen([this](bool isConnected) {
        if (!isConnected) loseAll();
      })) {}

BusCalls::~BusCalls() {
  bus_.unlisten(listener_);
  if (failingSoon_) bus_.cancel(*failingSoon_);
  for (const auto& [id, call] : calls_) bus_.cancel(call->limit);
}

BusCalls::CallID BusCalls::call(Compose compose, std::chrono::nanoseconds limit,
                                Answered answered) {
  const auto id = static_cast<CallID>(++lastID_);
  const auto timer = bus_.callAfter(
      limit, [this, id] { answer(id, {.isLate = true, .error = "there was no answer in time"}); });
  calls_[id] =
      std::make_unique<Call>(Call{*this, id, std::move(compose), std::move(answered), timer});
  waiting_.push_back(id);
  sendWaiting();
  return id;
}

bool BusCalls::drop(CallID call) {
  const std::unique_ptr<Call> dropped = take(call);
  sendWaiting();
  return dropped && dropped->isSent;
}

void BusCalls::sendWaiting() {
  while (!waiting_.empty() && open_ < window_) {
    const auto found = calls_.find(waiting_.front());
    waiting_.pop_front();
    if (found != calls_.end()) send(*found->second);
  }
}

void BusCalls::send(Call& call) {
  sd_bus* const connection = bus_.connection();
  if (connection == nullptr) return failSoon(call.id, kUnreachable);
  const BusMessage message = call.compose(connection);
  if (!message) return failSoon(call.id, "the message cannot be made");
  sd_bus_slot* slot = nullptr;
  // The limit is kept here, since it also counts the time before the call was sent.
  if (sd_bus_call_async(connection, &slot, message.get(), &Call::receive, &call, UINT64_MAX) < 0)
    return failSoon(call.id, "the message cannot be sent");
  call.slot.reset(slot);
  call.isSent = true;
  ++open_;
}

void BusCalls::failSoon(CallID call, const char* why) {
  failing_.emplace_back(call, why);
  if (!failingSoon_)
    failingSoon_ = bus_.callAfter(SystemBus::Clock::duration::zero(), [this] { failNow(); });
}

void BusCalls::failNow() {
  failingSoon_.reset();
  const std::vector<std::pair<CallID, std::string>> failing = std::exchange(failing_, {});
  for (const auto& [call, why] : failing) answer(call, {.error = why});
}

void BusCalls::loseAll() {
  std::vector<CallID> lost;
  lost.reserve(calls_.size());
  for (const auto& [id, call] : calls_) lost.push_back(id);
  waiting_.clear();
  for (const CallID id : lost) answer(id, {.error = kUnreachable});
}

std::unique_ptr<BusCalls::Call> BusCalls::take(CallID call) {
  const auto found = calls_.find(call);
  if (found == calls_.end()) return nullptr;
  std::unique_ptr<Call> taken = std::move(found->second);
  calls_.erase(found);
  bus_.cancel(taken->limit);
  if (taken->isSent) --open_;
  return taken;
}

void BusCalls::answer(CallID call, BusReply reply) {
  const std::unique_ptr<Call> answered = take(call);
  if (!answered) return;
  reply.wasSent = answered->isSent;
  sendWaiting();
  answered->answered(reply);
}

}  // namespace platform::system
