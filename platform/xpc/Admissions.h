// SPDX-License-Identifier: Apache-2.0

// Which connections a listener has admitted, and what they may cost together.
//
// Threading: any thread; no call-out.
// Ownership: a place belongs to its connection; the register refers to connections but never keeps
//   them alive.
// Errors: std::bad_alloc, which changes nothing.
// Order: of two silent connections the older is ended first.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/foundation/ForkMark.h"
#include "platform/xpc/NSXPCListener.h"
#include "platform/xpc/UnsentBudget.h"

namespace platform::xpc {

class ConnectionCore;

class Admissions : public std::enable_shared_from_this<Admissions> {
 public:
  explicit Admissions(const NSXPCListenerLimits& limits) : limits_(limits) {}

  /// What a connection holds while it counts towards the limits.
  class Place {
   public:
    Place(std::shared_ptr<Admissions> admissions, std::uint64_t number,
          std::shared_ptr<UnsentBudget> unsent)
        : admissions_(std::move(admissions)), number_(number), unsent_(std::move(unsent)) {}
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place() { admissions_->leave(number_); }

    /// From now on the connection is not ended to make room for another.
    void saidHello() { admissions_->noteHello(number_); }
    [[nodiscard]] std::chrono::milliseconds helloWithin() const {
      return admissions_->limits_.helloWithin;
    }
    [[nodiscard]] const std::shared_ptr<UnsentBudget>& unsent() const { return unsent_; }

   private:
    const std::shared_ptr<Admissions> admissions_;
    const std::uint64_t number_;
    const std::shared_ptr<UnsentBudget> unsent_;
  };

  struct Answer {
    std::unique_ptr<Place> place;  ///< null: refused
    /// A connection without a hello that must make room for this one; the caller ends it.
    std::weak_ptr<ConnectionCore> ended;
    const char* refusal = "";  ///< set for the first refusal since a connection was admitted
  };
  [[nodiscard]] Answer admit(uid_t user, std::weak_ptr<ConnectionCore> connection);

 private:
  struct Entry {
    uid_t user;
    std::weak_ptr<ConnectionCore> connection;
    bool isSilent = true;  ///< no hello yet
  };
  using Entries = std::map<std::uint64_t, Entry>;  ///< by age

  void leave(std::uint64_t number);
  void noteHello(std::uint64_t number);
  template <class Condition>
  [[nodiscard]] std::size_t countLocked(const Condition& condition) const;
  template <class Condition>
  [[nodiscard]] Entries::iterator oldestSilentLocked(const Condition& condition);
  [[nodiscard]] std::shared_ptr<UnsentBudget> budgetOfLocked(uid_t user);

  const NSXPCListenerLimits limits_;
  const ForkMark mark_;
  std::mutex mutex_;
  std::uint64_t lastNumber_ = 0;
  bool isRefusing_ = false;
  Entries entries_;
  const std::shared_ptr<UnsentBudget> unsent_ = std::make_shared<UnsentBudget>(limits_.unsentBytes);
  std::map<uid_t, std::weak_ptr<UnsentBudget>> unsentOfUser_;
};

}  // namespace platform::xpc
