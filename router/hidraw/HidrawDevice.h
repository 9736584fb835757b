// SPDX-License-Identifier: Apache-2.0

// An open hidraw device.
//
// A report is what the device sent, with the report ID in front if the device uses IDs.
//
// Threading: one thread at a time.
// Ownership: owns the open node, from the first call of next() a thread that reads ahead, and while
//   it is taken exclusively the device's input nodes.
// Errors: next() throws DeviceError if the device cannot be read although it is still there.
// Order: that of the device. What it sent before it was removed is handed out first.
#pragma once

#include <chrono>
#include <memory>

#include "router/Devices.h"
#include "router/hidraw/ExclusiveInput.h"
#include "router/hidraw/HidrawSystem.h"
#include "router/hidraw/ReadAhead.h"
#include "router/hidraw/ReportBuffer.h"

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
  /// When it was read: the kernel does not tell when it came.
  [[nodiscard]] std::chrono::steady_clock::time_point arrival() const override { return arrival_; }
  [[nodiscard]] std::uint64_t lost() const override;
  void takeExclusively() override;
  void releaseExclusive() override;

 private:
  /// Until there may be something new, or the signal is raised.
  void wait(const StopSignal& stop) const;
  /// Gone, or throws: what follows the last report.
  [[nodiscard]] Next end(int error) const;

  const HidrawSystem system_;
  const SystemDevice hid_;
  const platform::FileDescriptor node_;
  const std::vector<std::uint8_t> reportDescriptor_;
  std::unique_ptr<ExclusiveInput> exclusive_;
  ReportBuffer reports_;  // being handed out
  std::chrono::steady_clock::time_point arrival_;
  std::unique_ptr<ReadAhead> ahead_;
};

}  // namespace router
