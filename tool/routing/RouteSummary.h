// What is said for people around a routing: which device it is, and how it went.
//
// Threading: one thread. Ownership: values. Errors: none; what cannot be learnt is left out.
// Order: a LossCount is made before the routing begins and asked when it is over.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/services/SystemRoot.h"

namespace tool {

/// The device's name (empty: not known) and ID, how to end it, and what the columns hold.
[[nodiscard]] std::string routeHeader(const std::string& name, std::uint64_t registryEntryID);

struct Losses {
  std::uint64_t reports = 0;
  bool ofOthersToo = false;  ///< others were routing, and theirs cannot be told apart
};

/// How many reports the router lost while this process routed, by the router's own word.
class LossCount {
 public:
  explicit LossCount(platform::SystemRoot root);
  /// Waits a moment for the router to have noticed the end. Nothing where no router runs, or
  /// another one than at the beginning.
  [[nodiscard]] std::optional<Losses> take() const;

 private:
  const platform::SystemRoot root_;
  pid_t router_ = -1;
  std::uint64_t before_ = 0;
};

/// "8 reports in 0.09 s, 88.9 a second; none lost"
[[nodiscard]] std::string routeSummary(std::uint64_t reports, std::chrono::microseconds time,
                                       const std::optional<Losses>& losses);

}  // namespace tool
