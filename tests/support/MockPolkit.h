// SPDX-License-Identifier: Apache-2.0

// A polkit on a test's bus that answers as the test says, and is as strict as the real one is or
// should be: it accepts a process as the subject only with its ID as "u", its start time as "t" and
// its user as "i", and knows each cancellation ID once per caller. What does not fit is answered by
// an error and written down.
//
// Threading: any thread.
// Ownership: the test's bus outlives it. Its end is polkit's: open questions are never answered.
#pragma once

#include <systemd/sd-bus.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/system/SystemBus.h"
#include "tests/support/Inbox.h"

namespace testsupport {

class MockPolkit {
 public:
  struct Asked {
    std::uint64_t number = 0;  ///< to answer it by
    std::uint32_t processID = 0;
    std::uint64_t startTime = 0;
    std::int32_t user = -1;
    std::string action;
    std::map<std::string, std::string> details;
    std::uint32_t flags = 0;
    std::string cancellation;
  };
  enum class Says {
    Yes,
    No,
    NeedsPerson,
    Dismissed,
    Error,
    // What polkit never says:
    Nothing,
    WrongTypes,
    YesAndNeedsPerson,
    BareFlags,
  };

  explicit MockPolkit(const std::string& address);
  MockPolkit(const MockPolkit&) = delete;
  MockPolkit& operator=(const MockPolkit&) = delete;
  ~MockPolkit();

  /// Each question is answered at once from now on, until this is called with nothing.
  void answerAllWith(std::optional<Says> says);
  /// The oldest question not returned yet, once there is one.
  Asked next() { return asked_.next(); }
  void answer(const Asked& asked, Says says);
  /// The cancellation IDs of the questions taken back, in order.
  std::string nextCanceled() { return canceled_.next(); }
  /// How many were asked, answered or not.
  [[nodiscard]] std::size_t asked() const { return count_; }
  [[nodiscard]] std::vector<std::string> complaints();

 private:
  struct Handlers;
  using Message = std::unique_ptr<sd_bus_message, sd_bus_message* (*)(sd_bus_message*)>;

  bool appear();
  int check(sd_bus_message* call);
  int cancel(sd_bus_message* call);
  int refuse(sd_bus_message* call, const std::string& complaint);
  void reply(std::uint64_t number, Says says);

  Inbox<Asked> asked_;
  Inbox<std::string> canceled_;
  std::atomic<std::size_t> count_{0};

  // ---- On the thread of its connection
  std::vector<std::string> complaints_;
  std::optional<Says> automatic_;
  std::map<std::uint64_t, Message> open_;
  std::map<std::string, std::uint64_t> cancellations_;  ///< by caller and ID
  platform::system::SystemBus bus_;
};

}  // namespace testsupport
