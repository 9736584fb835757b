// One client's share in the reports of a device, and the way by which they reach it.
//
// Threading: deliver() runs on the device's thread, the rest on any. When end() has returned
//   nothing more is sent.
// Ownership: shares its sink.
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
#include "router/Backlog.h"
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
  /// The recording that was sent has been played to its end: who asks for it again at once, as a
  /// client does whose connection ends, is told so. Comes before the farewell.
  virtual void noteRecordingEnded() {}
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
  Subscription(std::shared_ptr<ReportSink> sink, UsageFilter filter, DeviceMode mode,
               std::shared_ptr<Backlog::Share> backlog)
      : sink_(std::move(sink)),
        filter_(std::move(filter)),
        mode_(mode),
        backlog_(std::move(backlog)) {}

  [[nodiscard]] DeviceMode mode() const { return mode_; }
  [[nodiscard]] std::uint64_t delivered() const {
    return delivered_.load(std::memory_order_relaxed);
  }
  [[nodiscard]] std::uint64_t lost() const { return lost_.load(std::memory_order_relaxed); }

  void begin();
  void end();
  [[nodiscard]] bool isActive() const;

  /// The report is lost to a client that has too much unsent already.
  void deliver(ReportInTransit* report);
  /// The report is for a client that was waited for.
  void deliverWithoutLoss(ReportInTransit* report);
  /// Wait until the client has room for further reports, or has taken all; until it has left or
  /// `stop` is raised. False when it stalled; with `patiently` it may take any time.
  bool waitForRoom(const StopSignal& stop, bool patiently) {
    return wait(stop, Until::Room, patiently);
  }
  bool waitUntilTaken(const StopSignal& stop, bool patiently) {
    return wait(stop, Until::Taken, patiently);
  }
  void noteRecordingEnded() { sink_->noteRecordingEnded(); }
  void sayFarewell() { sink_->sayFarewell(); }

 private:
  enum class Until { Room, Taken };
  bool wait(const StopSignal& stop, Until until, bool patiently);
  /// Fewer bytes unsent than this end the wait. What others have taken changes it.
  [[nodiscard]] std::size_t awaitedBytes(Until until) const;
  void send(ReportInTransit* report);

  const std::shared_ptr<ReportSink> sink_;
  const UsageFilter filter_;
  const DeviceMode mode_;
  const std::shared_ptr<Backlog::Share> backlog_;
  // Held while one report is handed to the sink, which never waits and never calls back, so that
  // end() can promise that nothing follows it.
  mutable std::mutex sending_;
  bool isActive_ = false;
  std::vector<platform::HIDElementValueRecord> wanted_;  // reused
  std::atomic<std::uint64_t> delivered_{0};
  std::atomic<std::uint64_t> lost_{0};
};

}  // namespace router
