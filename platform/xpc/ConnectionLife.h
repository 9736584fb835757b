// How far a connection's life has come, and what may come next.
//
// Threading: guarded by its connection's lock. Errors: an event that has no place in a phase
// changes nothing; the answer says so.
#pragma once

#include <cstddef>

namespace platform::xpc {

class ConnectionLife {
 public:
  enum class Phase {
    Fresh,        ///< not resumed yet
    Active,       ///< resumed; there is a stream, or there can be one
    Cancelled,    ///< invalidated before it was resumed
    Invalidated,  ///< by our own hand
    Abandoned,    ///< its handle has gone: nobody is told anything any more
    Lost,         ///< ended for good by the peer, and that is still to be reported
    Over,         ///< reported; the handlers are gone for good
  };
  static constexpr std::size_t kPhaseCount = 7;

  enum class Event {
    Resume,
    Invalidate,
    Abandon,
    Lose,    ///< the stream ended, and there can be no other
    Report,  ///< the invalidation handler is taken in order to be called, if there is one
  };
  static constexpr std::size_t kEventCount = 5;

  /// Whether `event` has a place here, and therefore changed the phase.
  bool take(Event event);
  [[nodiscard]] Phase phase() const { return phase_; }

  [[nodiscard]] bool isActive() const { return phase_ == Phase::Active; }
  /// Whether it takes no message any more.
  [[nodiscard]] bool hasEnded() const { return phase_ != Phase::Fresh && !isActive(); }
  /// Whether what is left to do is what an end by our own hand asks for.
  [[nodiscard]] bool endsLocally() const {
    return phase_ == Phase::Cancelled || phase_ == Phase::Invalidated || phase_ == Phase::Abandoned;
  }
  /// Whether there is still somebody to be told of an end.
  [[nodiscard]] bool mayReport() const {
    return phase_ != Phase::Abandoned && phase_ != Phase::Over;
  }

 private:
  Phase phase_ = Phase::Fresh;
};

}  // namespace platform::xpc
