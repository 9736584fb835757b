// SPDX-License-Identifier: Apache-2.0

#include "platform/system/PolkitClient.h"

#include <systemd/sd-bus.h>

#include <atomic>
#include <utility>
#include <vector>

#include "platform/system/BusCalls.h"
#include "platform/system/PolkitMessages.h"

namespace platform::system {
namespace {

using Kind = PolkitAnswer::Kind;

/// Persons take their time; they must not keep the rules from being asked.
constexpr std::size_t kPersonWindow = 48;
constexpr std::size_t kRuleWindow = 48;

constexpr const char* kGone = "the program has ended";

/// Unique among all clients of this process, which may share a bus.
std::atomic<std::uint64_t> lastQuestion{0};

}  // namespace

/// The questions that are open. On the bus's thread.
class PolkitClient::Questions {
 public:
  explicit Questions(SystemBus& bus)
      : bus_(bus), persons_(bus, kPersonWindow), rules_(bus, kRuleWindow) {}

  void ask(QuestionID id, PolkitQuestion question, Answered answered);
  void withdraw(QuestionID id, const char* why);
  void withdrawAll();

 private:
  struct Open {
    PeerProcess process;
    Answered answered;
    bool mayAskPerson;
    BusCalls::CallID call{};
  };

  BusCalls& callsFor(bool mayAskPerson) { return mayAskPerson ? persons_ : rules_; }
  void receive(QuestionID id, const BusReply& reply);
  [[nodiscard]] static PolkitAnswer judge(const Open& open, const BusReply& reply);
  void cancelAtPolkit(QuestionID id);
  [[nodiscard]] static std::string cancellationOf(QuestionID id);

  SystemBus& bus_;
  BusCalls persons_;
  BusCalls rules_;
  std::map<QuestionID, Open> open_;
  bool hasEnded_ = false;
};

void PolkitClient::Questions::ask(QuestionID id, PolkitQuestion question, Answered answered) {
  if (hasEnded_) return answered({.kind = Kind::Withdrawn, .reason = "nobody asks any more"});
  std::string why = whyUnaskable(question);
  if (!why.empty()) return answered({.kind = Kind::Failed, .reason = std::move(why)});
  if (!question.process.isAlive()) return answered({.kind = Kind::No, .reason = kGone});
  const bool mayAskPerson = question.mayAskPerson;
  const auto limit = question.limit.value_or(mayAskPerson ? kPersonLimit : kRuleLimit);
  Open& open =
      open_.emplace(id, Open{question.process, std::move(answered), mayAskPerson}).first->second;
  open.call = callsFor(mayAskPerson)
                  .call(
                      [id, question = std::move(question)](sd_bus* connection) {
                        return composeQuestion(connection, question, cancellationOf(id));
                      },
                      limit, [this, id](const BusReply& reply) { receive(id, reply); });
}

void PolkitClient::Questions::receive(QuestionID id, const BusReply& reply) {
  const auto found = open_.extract(id);
  if (!found) return;
  if (reply.isLate && reply.wasSent) cancelAtPolkit(id);
  found.mapped().answered(judge(found.mapped(), reply));
}

PolkitAnswer PolkitClient::Questions::judge(const Open& open, const BusReply& reply) {
  if (reply.message == nullptr)
    return {.kind = Kind::Failed, .reason = "polkit has not answered: " + reply.error};
  PolkitAnswer answer = readAnswer(reply.message, open.mayAskPerson);
  if (answer.isYes() && !open.process.isAlive()) return {.kind = Kind::No, .reason = kGone};
  return answer;
}

void PolkitClient::Questions::withdraw(QuestionID id, const char* why) {
  const auto found = open_.extract(id);
  if (!found) return;
  const Open& open = found.mapped();
  if (callsFor(open.mayAskPerson).drop(open.call)) cancelAtPolkit(id);
  open.answered({.kind = Kind::Withdrawn, .reason = why});
}

void PolkitClient::Questions::withdrawAll() {
  hasEnded_ = true;
  while (!open_.empty()) withdraw(open_.begin()->first, "nobody asks any more");
}

void PolkitClient::Questions::cancelAtPolkit(QuestionID id) {
  if (bus_.connection() == nullptr) return;
  if (const BusMessage message = composeCancellation(bus_.connection(), cancellationOf(id)))
    sd_bus_send(bus_.connection(), message.get(), nullptr);
}

std::string PolkitClient::Questions::cancellationOf(QuestionID id) {
  return "question-" + std::to_string(static_cast<std::uint64_t>(id));
}

// -------------------------------------------------------------------------------------------------

PolkitClient::PolkitClient(SystemBus& bus) : bus_(bus) {
  bus_.run([this] { questions_ = std::make_shared<Questions>(bus_); });
}

PolkitClient::~PolkitClient() {
  bus_.run([this] { questions_->withdrawAll(); });
  // This may be within one of their answers, so they go later, and on the thread they belong to.
  bus_.post([questions = std::move(questions_)] {});
}

PolkitClient::QuestionID PolkitClient::ask(PolkitQuestion question, Answered answered) {
  const auto id = static_cast<QuestionID>(lastQuestion.fetch_add(1) + 1);
  // Shared, because a std::function is copied.
  const auto asked = std::make_shared<std::pair<PolkitQuestion, Answered>>(std::move(question),
                                                                           std::move(answered));
  bus_.post([questions = questions_, id, asked] {
    questions->ask(id, std::move(asked->first), std::move(asked->second));
  });
  return id;
}

void PolkitClient::withdraw(QuestionID question) {
  bus_.post([questions = questions_, question] {
    questions->withdraw(question, "the question was withdrawn");
  });
}

}  // namespace platform::system
