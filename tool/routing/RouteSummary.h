// SPDX-License-Identifier: Apache-2.0

// What people are told before and after a routing session: which device it is, and how it went.
//
// Threading: one thread.
// Errors: what cannot be determined is left out.
// Order: create a LossCount before routing begins and call take() when it is over.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/services/SystemRoot.h"
#include "router/RouterStatus.h"

namespace tool {

/// The device's name (empty: unknown) and ID, how to end the session, and what the columns mean.
[[nodiscard]] std::string routeHeader(const std::string& name, std::uint64_t registryEntryID);

struct Losses {
  std::uint64_t reports = 0;
  bool ofOthersToo = false;  ///< includes those of other sessions, which cannot be told apart
};

/// "3 lost, by all sessions together"
[[nodiscard]] std::string lossText(const Losses& losses);

/// How many reports the router says it lost while this process was routing.
class LossCount {
 public:
  explicit LossCount(platform::SystemRoot root);
  /// Waits briefly for the router to notice the end, or, if it was only started for this session,
  /// to say anything yet. Nothing if no router runs or answers, or a different one than at the
  /// beginning.
  [[nodiscard]] std::optional<Losses> take() const;

 private:
  [[nodiscard]] bool isStillToTell(const std::optional<router::RouterStatus>& status) const;

  const platform::SystemRoot root_;
  bool isUnknown_ = false;  // what had been lost before
  pid_t router_ = -1;
  std::uint64_t before_ = 0;
};

/// The same while this process is still routing.
class LossWatch {
 public:
  explicit LossWatch(platform::SystemRoot root);
  /// So far. Waits for a quarter of a second at most, since a screen waits meanwhile. Nothing if no
  /// router runs or answers; of another router than before only what it loses from now
  /// on.
  [[nodiscard]] std::optional<Losses> losses();

 private:
  const platform::SystemRoot root_;
  pid_t router_ = -1;
  std::uint64_t before_ = 0;
  bool hasOthers_ = false;
};

/// "8 reports in 0.09 s, 88.9 per second; none lost"
[[nodiscard]] std::string routeSummary(std::uint64_t reports, std::chrono::microseconds time,
                                       const std::optional<Losses>& losses);

}  // namespace tool
