// SPDX-License-Identifier: Apache-2.0

// Asks polkit whether a process may do something.
//
// Each question gets exactly one answer. Only Answer::Kind::Yes is a permission; everything else
// is none and says why, among others when polkit or the bus is missing or too slow, when an answer
// is malformed, and when the process has ended before polkit said yes.
//
// A person is asked by the agent of the process's login session, if the question allows it. When
// the time is up or the question withdrawn, the agent's dialog goes away.
//
// Threading: ask and withdraw from any thread, without waiting. Answers come on the bus's thread,
//   with no lock held.
// Ownership: the bus outlives this object. Destruction answers what is open before it returns.
// Order: none among answers.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/system/PeerProcess.h"
#include "platform/system/SystemBus.h"

namespace platform::system {

struct PolkitQuestion {
  PeerProcess process;  ///< who wants to do it
  std::string action;   ///< as in the policy file
  /// For the administrator's rules; a person does not see them. Keys of lowercase letters, digits,
  /// "-" and "_"; values are made printable lines. Only the superuser and an action's owner may
  /// pass any, or a message.
  std::map<std::string, std::string> details{};
  /// What a person reads instead of the action's own message; empty: the action's own. Its parts
  /// from outside pass through platform/system/PromptText.h.
  std::string message{};
  bool mayAskPerson = false;
  /// Otherwise kPersonLimit or kRuleLimit.
  std::optional<std::chrono::milliseconds> limit{};
};

struct PolkitAnswer {
  enum class Kind : std::uint8_t {
    Yes,
    No,
    Dismissed,  ///< the person closed the dialog without answering
    Withdrawn,  ///< by whoever asked
    Failed,     ///< nobody has decided
  };
  Kind kind = Kind::Failed;
  /// With No: a person could say yes, but the question did not allow to ask one, or there is no
  /// agent in the process's session.
  bool needsPerson = false;
  std::string reason{};  ///< for the log and for people: one printable line

  [[nodiscard]] bool isYes() const { return kind == Kind::Yes; }
};

class PolkitClient {
 public:
  enum class QuestionID : std::uint64_t {};
  using Answered = std::function<void(const PolkitAnswer& answer)>;

  static constexpr std::chrono::milliseconds kPersonLimit = std::chrono::minutes(3);
  static constexpr std::chrono::milliseconds kRuleLimit = std::chrono::seconds(5);

  explicit PolkitClient(SystemBus& bus);
  PolkitClient(const PolkitClient&) = delete;
  PolkitClient& operator=(const PolkitClient&) = delete;
  ~PolkitClient();

  QuestionID ask(PolkitQuestion question, Answered answered);
  /// The answer is Withdrawn, unless another one is on its way to `answered` already.
  void withdraw(QuestionID question);

 private:
  class Questions;

  SystemBus& bus_;
  std::shared_ptr<Questions> questions_;
};

}  // namespace platform::system
