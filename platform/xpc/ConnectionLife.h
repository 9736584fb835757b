// SPDX-License-Identifier: Apache-2.0

// The phase of a connection's life and its transitions.
//
// Threading: guarded by its connection's lock.
// Errors: an event that is not valid in a phase changes nothing; take() then returns false.
#pragma once

#include <cstddef>

namespace platform::xpc {

class ConnectionLife {
 public:
  enum class Phase {
    Fresh,        ///< not resumed yet
    Active,       ///< resumed; has a stream or can open one
    Cancelled,    ///< invalidated before it was resumed
    Invalidated,  ///< by the local end
    Abandoned,    ///< without a handle: nobody is told anything any more
    Lost,         ///< ended for good by the peer, of which the owner is still to be told
    Over,         ///< the owner was told; the handlers have been released
  };
  static constexpr std::size_t kPhaseCount = 7;

  enum class Event {
    Resume,
    Invalidate,
    Abandon,
    Lose,    ///< the stream ended, and there can be no other
    Notify,  ///< the invalidation handler, if set, is about to be called
  };
  static constexpr std::size_t kEventCount = 5;

  /// Whether `event` is valid here and therefore changed the phase.
  bool take(Event event);
  [[nodiscard]] Phase phase() const { return phase_; }

  [[nodiscard]] bool isActive() const { return phase_ == Phase::Active; }
  /// Whether it accepts no more messages.
  [[nodiscard]] bool hasEnded() const { return phase_ != Phase::Fresh && !isActive(); }
  /// Whether the local end closed it, so that this side has to finish it.
  [[nodiscard]] bool endsLocally() const {
    return phase_ == Phase::Cancelled || phase_ == Phase::Invalidated || phase_ == Phase::Abandoned;
  }
  /// Whether anybody can still be told of an end.
  [[nodiscard]] bool mayNotify() const {
    return phase_ != Phase::Abandoned && phase_ != Phase::Over;
  }

 private:
  Phase phase_ = Phase::Fresh;
};

}  // namespace platform::xpc
