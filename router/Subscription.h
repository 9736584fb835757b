// SPDX-License-Identifier: Apache-2.0

// One client's subscription to a device's reports, and how they reach it.
//
// Threading: deliver() runs on the device's thread, the rest on any. After end() or revoke() has
//   returned, nothing more is sent.
// Ownership: shares its sink.
// Order: a client gets a report, then its values; reports keep their order.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "router/Backlog.h"
#include "router/ReportArrivals.h"
#include "router/ReportIDs.h"
#include "router/StopSignal.h"
#include "router/UsageFilter.h"

namespace router {

/// Where a client's input goes: its connection, or a test.
class ReportSink {
 public:
  virtual ~ReportSink() = default;
  /// Never waits. `values` is null if the report has none that the client wants.
  virtual void send(const std::shared_ptr<platform::NSData>& report, std::uint32_t reportID,
                    const std::shared_ptr<platform::NSArray>& values) = 0;
  /// Bytes sent that the client has not read yet, beyond what the system buffers.
  [[nodiscard]] virtual std::size_t unsentBytes() const = 0;
  /// Waits until fewer than `bytes` are unsent, at most `limit`; returns whether they are.
  virtual bool waitUntilUnsentBelow(std::size_t bytes, std::chrono::milliseconds limit) = 0;
  /// The recording has been played to its end. A client asks for it again as soon as its connection
  /// ends, and is told so then. Called before the farewell.
  virtual void noteRecordingEnded() {}
  /// Closes the connection after what was sent. Never waits.
  virtual void sayFarewell() = 0;
};

/// One report on its way to several clients. What they share is created once, when first needed.
class ReportInTransit {
 public:
  ReportInTransit(std::span<const std::uint8_t> report, std::uint32_t reportID,
                  std::span<const platform::HIDElementValueRecord> values,
                  std::chrono::steady_clock::time_point arrival)
      : report_(report), reportID_(reportID), values_(values), arrival_(arrival) {}

  [[nodiscard]] std::uint32_t reportID() const { return reportID_; }
  [[nodiscard]] std::span<const platform::HIDElementValueRecord> values() const { return values_; }
  [[nodiscard]] std::chrono::steady_clock::time_point arrival() const { return arrival_; }
  [[nodiscard]] const std::shared_ptr<platform::NSData>& data();
  [[nodiscard]] const std::shared_ptr<platform::NSArray>& allValues();

 private:
  std::span<const std::uint8_t> report_;
  std::uint32_t reportID_;
  std::span<const platform::HIDElementValueRecord> values_;
  std::chrono::steady_clock::time_point arrival_;
  std::shared_ptr<platform::NSData> data_;
  std::shared_ptr<platform::NSArray> allValues_;
};

enum class DeviceMode : std::uint64_t {
  Shared = 0,
  Exclusive = 1,  ///< no other client may use the device
};

class Subscription {
 public:
  Subscription(std::shared_ptr<ReportSink> sink, UsageFilter filter, DeviceMode mode,
               std::shared_ptr<Backlog::Share> backlog)
      : sink_(std::move(sink)),
        filter_(std::move(filter)),
        mode_(mode),
        backlog_(std::move(backlog)) {}

  [[nodiscard]] DeviceMode mode() const { return mode_; }
  [[nodiscard]] const UsageFilter& filter() const { return filter_; }
  [[nodiscard]] std::uint64_t delivered() const {
    return delivered_.load(std::memory_order_relaxed);
  }
  [[nodiscard]] std::uint64_t lost() const { return lost_.load(std::memory_order_relaxed); }
  /// When the latest of the reports that were delivered had arrived. They are noted from the first
  /// call on.
  [[nodiscard]] ReportArrivals arrivals();

  /// Before it begins: the client gets these reports and no others. By default it gets all.
  void limitTo(const ReportIDs& reports) { reports_ = reports; }
  [[nodiscard]] bool covers(std::uint32_t reportID) const {
    return reportID < reports_.size() && reports_[reportID];
  }

  void begin();
  void end();
  /// Ends it for good: it does not begin any more either.
  void revoke();
  [[nodiscard]] bool isActive() const;

  /// The report is lost if the client has too much unsent already.
  void deliver(ReportInTransit* report);
  /// So many reports of the device were lost before they could be delivered.
  void noteLost(std::uint64_t reports);
  /// For a client that the device has waited for.
  void deliverWithoutLoss(ReportInTransit* report);
  /// Waits until the client has room for more reports, or has left, or `stop` is raised. False if
  /// it stalled; with `patiently` there is no time limit.
  bool waitForRoom(const StopSignal& stop, bool patiently);
  /// Whether the client has read all that was sent, or has left; waits for it at most that long.
  [[nodiscard]] bool hasTakenAllWithin(std::chrono::milliseconds moment);
  [[nodiscard]] std::chrono::milliseconds stallTimeout() const {
    return backlog_->limits().stallTimeout;
  }
  void noteRecordingEnded() { sink_->noteRecordingEnded(); }
  void sayFarewell() { sink_->sayFarewell(); }

 private:
  /// The wait for room ends when fewer bytes than this are unsent. Changes with what other clients
  /// read.
  [[nodiscard]] std::size_t awaitedBytes() const;
  void send(ReportInTransit* report);

  const std::shared_ptr<ReportSink> sink_;
  const UsageFilter filter_;
  const DeviceMode mode_;
  ReportIDs reports_ = allReports();
  const std::shared_ptr<Backlog::Share> backlog_;
  // Held while a report is passed to the sink, which never waits and never calls back, so that
  // end() can promise that nothing follows it.
  mutable std::mutex sending_;
  bool isActive_ = false;
  bool isRevoked_ = false;
  std::vector<platform::HIDElementValueRecord> wanted_;  // reused between reports
  std::unique_ptr<ArrivalNotes> arrivals_;               // null while nobody has asked
  std::atomic<std::uint64_t> delivered_{0};
  std::atomic<std::uint64_t> lost_{0};
};

}  // namespace router
