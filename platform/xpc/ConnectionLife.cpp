// SPDX-License-Identifier: Apache-2.0

#include "platform/xpc/ConnectionLife.h"

#include <array>

namespace platform::xpc {
namespace {

using Phase = ConnectionLife::Phase;

constexpr std::size_t indexOf(auto value) {
  return static_cast<std::size_t>(value);
}

/// The phase that each event leads to; the same phase if the event is not valid in it.
using Row = std::array<Phase, ConnectionLife::kEventCount>;
constexpr std::array<Row, ConnectionLife::kPhaseCount> kTransitions = [] {
  using enum ConnectionLife::Phase;
  return std::array<Row, ConnectionLife::kPhaseCount>{{
      // Resume, Invalidate, Abandon, Lose, Notify
      {Active, Cancelled, Abandoned, Fresh, Fresh},
      {Active, Invalidated, Abandoned, Lost, Active},
      {Cancelled, Cancelled, Cancelled, Cancelled, Over},
      {Invalidated, Invalidated, Invalidated, Invalidated, Over},
      {Abandoned, Abandoned, Abandoned, Abandoned, Over},
      {Lost, Invalidated, Abandoned, Lost, Over},
      {Over, Over, Over, Over, Over},
  }};
}();

}  // namespace

bool ConnectionLife::take(Event event) {
  const Phase next = kTransitions[indexOf(phase_)][indexOf(event)];
  const bool changes = next != phase_;
  phase_ = next;
  return changes;
}

}  // namespace platform::xpc
