// SPDX-License-Identifier: Apache-2.0

// An open hidraw device.
//
// The kernel keeps 64 reports for each reader, and drops those for which there is no room without
// telling. So whenever reports wait, all of them are read at once and then handed out from memory:
// while they are delivered, all 64 places are free.
//
// A report is what the device sent, with the report ID in front if the device uses IDs.
//
// Threading: one thread at a time.
// Ownership: owns the open node, a buffer of RouterLimits::kReadAheadBytes, and while it is taken
//   exclusively the device's input nodes.
// Errors: next() throws DeviceError if the device cannot be read although it is still there.
// Order: that of the device. What it sent before it was removed is handed out first.
#pragma once

#include <memory>

#include "router/Devices.h"
#include "router/hidraw/ExclusiveInput.h"
#include "router/hidraw/HidrawSystem.h"

namespace router {

class HidrawDevice final : public OpenDevice {
 public:
  /// `node` is the open node of `hid`'s hidraw device.
  HidrawDevice(HidrawSystem system, SystemDevice hid, platform::FileDescriptor node,
               std::vector<std::uint8_t> reportDescriptor);

  [[nodiscard]] const std::vector<std::uint8_t>& reportDescriptor() const override {
    return reportDescriptor_;
  }
  [[nodiscard]] bool waitsForReaders() const override { return false; }
  Next next(const StopSignal& stop, std::span<const std::uint8_t>* returnReport) override;
  void takeExclusively() override;
  void releaseExclusive() override;

 private:
  [[nodiscard]] std::span<const std::uint8_t> takeReport();
  /// Reads what waits, up to the buffer's limits. Returns 0 at a limit, else the error number that
  /// ended it.
  int readAhead();
  /// Until there is something to read, the device is removed, or the signal is raised.
  void wait(const StopSignal& stop);
  /// Gone, or throws: what follows the last report.
  Next end() const;

  const HidrawSystem system_;
  const SystemDevice hid_;
  const platform::FileDescriptor node_;
  const std::vector<std::uint8_t> reportDescriptor_;
  std::unique_ptr<ExclusiveInput> exclusive_;
  std::vector<std::uint8_t> buffer_;  // reports, one after the other
  std::vector<std::size_t> lengths_;  // theirs
  std::size_t next_ = 0;              // which one is handed out next
  std::size_t begin_ = 0;             // where it begins in the buffer
  int error_ = 0;                     // the error number after which nothing more can be read
};

}  // namespace router
