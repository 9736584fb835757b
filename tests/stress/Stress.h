// SPDX-License-Identifier: Apache-2.0

// What the stress programs share: how much they do, and how they report the result.
//
//   life short      a run of seconds to a minute, as part of the ordinary tests
//   life long       the full amount
//   life 10%        that part of it, but at least the short run
//
// Each program prints lines "name: figure" and exits with 0 if every demand held, else with 1 and a
// line "FAILED: …" for each that did not.
//
// Threading: any thread.
// Errors: see Work::parse.
// Order: lines come out as figures come in.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace stress {

/// How long anything is waited for before it counts as failed.
inline constexpr std::chrono::seconds kPatience{60};

class Work {
 public:
  /// From "short", "long" or a percentage; throws std::invalid_argument.
  static Work parse(std::string_view text);
  /// How often, given the full amount and that of the short run.
  [[nodiscard]] std::uint64_t times(std::uint64_t whole, std::uint64_t shortRun) const;
  [[nodiscard]] bool isShort() const { return share_ <= 0; }

 private:
  explicit Work(double share) : share_(share) {}
  double share_;
};

class Findings {
 public:
  void figure(std::string_view name, const std::string& value);
  void figure(std::string_view name, std::uint64_t value) { figure(name, std::to_string(value)); }
  /// With three decimal places.
  void figure(std::string_view name, double value);
  /// Records a failure unless `holds`; the text says what was demanded and what was found. A demand
  /// that fails repeatedly is printed only a few times. Returns `holds`.
  bool demand(bool holds, std::string_view text);
  /// Demands that two counts are equal.
  bool demandEqual(std::string_view what, std::uint64_t found, std::uint64_t expected);
  [[nodiscard]] int exitStatus() const { return failures_.load() == 0 ? 0 : 1; }

 private:
  std::mutex mutex_;
  std::atomic<std::uint64_t> failures_{0};
};

/// Polls until `holds`, for what has no event to wait for; false if the time is up first.
[[nodiscard]] bool eventually(const std::function<bool()>& holds,
                              std::chrono::milliseconds limit = kPatience);

/// Runs a program's work: the main() of each program.
int run(int argc, char** argv, const std::function<void(const Work&, Findings&)>& work);

}  // namespace stress
