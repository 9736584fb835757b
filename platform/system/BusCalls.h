// SPDX-License-Identifier: Apache-2.0

// Method calls over the system bus, each of which is answered exactly once.
//
// The bus refuses a call from a connection that already waits for 128 answers. So each user of the
// bus has a window of its own: that many calls are open at once, further ones wait here.
//
// Threading: the bus's thread.
// Ownership: the bus outlives this object. Destruction forgets all calls without an answer, and
//   does not happen within one.
// Order: calls are sent in the order in which they were made; answers come as they come, and never
//   before call() has returned.
// Errors: as a BusReply without a message.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/system/BusTypes.h"
#include "platform/system/SystemBus.h"

namespace platform::system {

struct BusReply {
  sd_bus_message* message = nullptr;  ///< null if the call failed; belongs to the caller
  bool isLate = false;                ///< the time limit has passed
  bool wasSent = false;               ///< it may have had an effect, whatever became of the answer
  std::string error{};                ///< why the call failed: one printable line
};

class BusCalls {
 public:
  enum class CallID : std::uint64_t {};
  /// Makes the message; null if it cannot be made.
  using Compose = std::function<BusMessage(sd_bus* connection)>;
  using Answered = std::function<void(const BusReply& reply)>;

  BusCalls(SystemBus& bus, std::size_t window);
  BusCalls(const BusCalls&) = delete;
  BusCalls& operator=(const BusCalls&) = delete;
  ~BusCalls();

  /// The time limit includes the wait for a place in the window.
  CallID call(Compose compose, std::chrono::nanoseconds limit, Answered answered);
  /// No answer comes. Returns whether it was sent.
  bool drop(CallID call);

 private:
  struct Call;
  using Calls = std::map<CallID, std::unique_ptr<Call>>;

  void sendWaiting();
  void send(Call& call);
  void failSoon(CallID call, const char* why);
  void failNow();
  void loseAll();
  void answer(CallID call, BusReply reply);
  std::unique_ptr<Call> take(CallID call);

  SystemBus& bus_;
  const std::size_t window_;
  SystemBus::ListenerID listener_;
  std::uint64_t lastID_ = 0;
  Calls calls_;
  std::deque<CallID> waiting_;  ///< may name calls that are gone
  std::size_t open_ = 0;
  std::vector<std::pair<CallID, std::string>> failing_;
  std::optional<SystemBus::TimerID> failingSoon_;
};

}  // namespace platform::system
