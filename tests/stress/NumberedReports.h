// SPDX-License-Identifier: Apache-2.0

// Reports that carry their own number, and a delegate that checks every one of them.
//
// A report is a row of 32-bit words: its number, then words derived from device, number and
// position. So a report that is missing, duplicated, out of order or mixed up is noticed at once,
// and so are wrong element values.
//
// Threading: the checker is called on its connection's queue; its counts may be read from any
//   thread.
// Order: reports are expected in order, each before its values.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "WLHIDAccess/WLHIDEventRouterClient.h"

namespace stress {

struct Numbered {
  std::uint32_t device = 0;
  std::uint32_t count = 0;         ///< of reports
  std::uint32_t words = 2;         ///< per report
  std::uint32_t microseconds = 0;  ///< between two reports
  /// Whether the device stays for one more hour, with one report at its end.
  bool stays = false;

  [[nodiscard]] std::uint32_t word(std::uint32_t number, std::uint32_t place) const;
  /// The recording.
  [[nodiscard]] std::string text() const;
};

class Checker final : public WLHIDEventRouterClientDelegate {
 public:
  struct Counts {
    std::uint64_t reports = 0;
    std::uint64_t missing = 0;  ///< skipped numbers
    std::uint64_t wrong = 0;    ///< wrong content or order, or values that are not their report's
    std::uint64_t valueArrays = 0;
    std::uint64_t errors = 0;
    bool isRouting = false;
  };
  /// Called for each report, on the queue.
  using Burden = std::function<void()>;

  explicit Checker(const Numbered& numbered, Burden burden = {})
      : numbered_(numbered), burden_(std::move(burden)) {}

  void hidEventRouterClient_clientStatusChangedTo(const std::shared_ptr<WLHIDEventRouterClient>&,
                                                  WLHIDEventRouterClientStatus status) override;
  void hidEventRouterClient_handleError(const std::shared_ptr<WLHIDEventRouterClient>&,
                                        const std::shared_ptr<platform::NSError>&) override;
  void hidEventRouterClient_receivedElementValues(
      const std::shared_ptr<WLHIDEventRouterClient>&,
      const std::shared_ptr<platform::NSArray>& values) override;
  void hidEventRouterClient_receivedReportData_reportID(
      const std::shared_ptr<WLHIDEventRouterClient>&, const std::shared_ptr<platform::NSData>& data,
      std::uint32_t reportID) override;

  [[nodiscard]] Counts counts() const;
  [[nodiscard]] bool waitUntil(const std::function<bool(const Counts&)>& condition,
                               std::chrono::seconds limit) const;
  /// How much later than the most punctual one each report arrived, in microseconds; sorted.
  [[nodiscard]] std::vector<double> lateness() const;

 private:
  void note(const std::function<void(Counts&)>& change);
  [[nodiscard]] bool isReport(const platform::NSData& data, std::uint32_t number) const;
  [[nodiscard]] bool areValues(const platform::NSArray& values, std::uint32_t number) const;

  const Numbered numbered_;
  const Burden burden_;
  std::uint32_t next_ = 0;  // used only on the queue
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  Counts counts_;
  std::vector<std::pair<std::uint32_t, std::chrono::steady_clock::time_point>> arrivals_;
};

}  // namespace stress
