// What the stress programs share: how much they are to do, and how they say what came of it.
//
//   life short      a run of seconds to a minute, as the ordinary tests do it
//   life long       the whole figures
//   life 10%        that part of the whole, at least the short run
//
// Each program prints lines "name: figure" and ends with 0 when every demand held, else with 1 and
// a line "FAILED: …" for each that did not.
//
// Threading: any thread. Ownership: values. Errors: see Work::parse. Order: lines come out as
// figures come in.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace stress {

/// How long anything is waited for before it counts as not happening.
inline constexpr std::chrono::seconds kPatience{60};

class Work {
 public:
  /// From "short", "long" or a percentage; throws std::invalid_argument.
  static Work parse(std::string_view text);
  /// How often, given the whole figure and that of the short run.
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
  /// With three digits behind the point.
  void figure(std::string_view name, double value);
  /// Notes a failure unless `holds`; the text says what was demanded and what was found. A demand
  /// that fails again and again is printed a few times only. Returns `holds`.
  bool demand(bool holds, std::string_view text);
  /// demand() that two counts are the same.
  bool demandEqual(std::string_view what, std::uint64_t found, std::uint64_t expected);
  [[nodiscard]] int exitStatus() const { return failures_.load() == 0 ? 0 : 1; }

 private:
  std::mutex mutex_;
  std::atomic<std::uint64_t> failures_{0};
};

/// Waits until `holds`, looking again and again for what has no event to wait for; false when the
/// time is over.
[[nodiscard]] bool eventually(const std::function<bool()>& holds,
                              std::chrono::milliseconds limit = kPatience);

/// Runs a program's work: main() of each of them.
int run(int argc, char** argv, const std::function<void(const Work&, Findings&)>& work);

}  // namespace stress
