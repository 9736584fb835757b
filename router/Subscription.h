// One client's share in the reports of a device, and the way by which they reach it.
//
// Threading: deliver() runs on the device's thread, the rest on any. When end() has returned
//   nothing more is sent.
// Ownership: shares its sink. Errors: none.
// Order: a client sees a report, then its values; reports keep their order.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSData.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "router/StopSignal.h"
#include "router/UsageFilter.h"

namespace router {

/// Where a client's input goes: its connection, or a test.
class ReportSink {
 public:
  virtual ~ReportSink() = default;
  /// Never waits. `values` is null where the report has none that the client wants.
  virtual void send(const std::shared_ptr<platform::NSData>& report, std::uint32_t reportID,
                    const std::shared_ptr<platform::NSArray>& values) = 0;
  /// Bytes that were sent and that the client has not taken yet, beyond what the system buffers.
  [[nodiscard]] virtual std::size_t unsentBytes() const = 0;
  /// Waits for fewer than `bytes` to be unsent, at most for `limit`; whether they are.
  virtual bool waitUntilUnsentBelow(std::size_t bytes, std::chrono::milliseconds limit) = 0;
  /// Ends the connection behind what was sent. Never waits.
  virtual void sayFarewell() = 0;
};

/// One report on its way to several clients. What is the same for all is made once, when the first
/// needs it.
class ReportInTransit {
 public:
  ReportInTransit(std::span<const std::uint8_t> report, std::uint32_t reportID,
                  std::span<const platform::HIDElementValueRecord> values)
      : report_(report), reportID_(reportID), values_(values) {}

  [[nodiscard]] std::uint32_t reportID() const { return reportID_; }
  [[nodiscard]] std::span<const platform::HIDElementValueRecord> values() const { return values_; }
  [[nodiscard]] const std::shared_ptr<platform::NSData>& data();
  [[nodiscard]] const std::shared_ptr<platform::NSArray>& allValues();

 private:
  std::span<const std::uint8_t> report_;
  std::uint32_t reportID_;
  std::span<const platform::HIDElementValueRecord> values_;
  std::shared_ptr<platform::NSData> data_;
  std::shared_ptr<platform::NSArray> allValues_;
};

enum class DeviceMode : std::uint64_t {
  Shared = 0,
  Exclusive = 1,  ///< the device is this client's alone
};

class Subscription {
 public:
  /// A device that sends when it sends does not wait for a client with this much unsent: the report
  /// is lost to it.
  static constexpr std::size_t kLossLimit = std::size_t{4} << 20;
  /// A device that waits for its readers keeps a client's backlog below this.
  static constexpr std::size_t kWaitLimit = std::size_t{1} << 20;
  /// How long a client may hold up others; then its connection ends.
  static constexpr std::chrono::seconds kStallLimit{30};

  Subscription(std::shared_ptr<ReportSink> sink, UsageFilter filter, DeviceMode mode)
      : sink_(std::move(sink)), filter_(std::move(filter)), mode_(mode) {}

  [[nodiscard]] DeviceMode mode() const { return mode_; }
  [[nodiscard]] std::uint64_t delivered() const {
    return delivered_.load(std::memory_order_relaxed);
  }
  [[nodiscard]] std::uint64_t lost() const { return lost_.load(std::memory_order_relaxed); }

  void begin();
  void end();
  [[nodiscard]] bool isActive() const;

  void deliver(ReportInTransit* report);
  /// Waits until fewer than `bytes` are unsent, the client has left or `stop` is raised. False when
  /// the client stalled for kStallLimit; with `patiently` that limit does not hold.
  bool waitForReader(const StopSignal& stop, std::size_t bytes, bool patiently);
  void sayFarewell() { sink_->sayFarewell(); }

 private:
  void send(ReportInTransit* report);

  const std::shared_ptr<ReportSink> sink_;
  const UsageFilter filter_;
  const DeviceMode mode_;
  // Held while one report is handed to the sink, which never waits and never calls back, so that
  // end() can promise that nothing follows it.
  mutable std::mutex sending_;
  bool isActive_ = false;
  std::vector<platform::HIDElementValueRecord> wanted_;  // reused
  std::atomic<std::uint64_t> delivered_{0};
  std::atomic<std::uint64_t> lost_{0};
};

}  // namespace router
