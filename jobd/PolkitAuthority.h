// SPDX-License-Identifier: Apache-2.0

// Has polkit decide who may change the system's router.
//
// Each right is one of polkit's actions. The subject is the caller as the kernel identifies it; a
// caller that has gone is a no, and so are an unreachable polkit and one that does not answer. One
// that hangs up meanwhile takes its question back. The question that a person may see is composed
// here; of the application it holds the program's name and the prompt, quoted.
//
// Threading: the loop's thread; the answers come there too.
// Ownership: the loop outlives it; it outlives whoever waits for an answer.
#pragma once

#include "jobd/Mailbox.h"
#include "jobd/Permission.h"
#include "platform/system/PolkitClient.h"

namespace jobd {

class PolkitAuthority {
 public:
  PolkitAuthority(Mailbox& mailbox, platform::system::SystemBus& bus)
      : mailbox_(mailbox), polkit_(bus) {}

  void decide(const Question& question, const Decided& decided);

 private:
  Mailbox& mailbox_;
  platform::system::PolkitClient polkit_;
};

/// The question to a person, for a right that has an action.
[[nodiscard]] std::string messageFor(const Question& question, const std::string& program);
/// What polkit's answer means for the caller.
[[nodiscard]] Decision decisionOf(const platform::system::PolkitAnswer& answer);

}  // namespace jobd
