// SPDX-License-Identifier: Apache-2.0

// Reads a device node on a thread of its own, so that whoever delivers its reports may take longer
// than the device does for the next ones.
//
// The kernel keeps 64 reports for each reader, and drops those for which there is no room without
// telling. What is read here too late to be kept is counted instead.
//
// Threading: one thread at a time, beside its own.
// Ownership: the node must outlive it. Its memory is twice RouterLimits::kReadAheadBytes: one
//   buffer is filled while the other is handed out.
// Errors: the constructor throws std::system_error.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/services/FileDescriptor.h"
#include "router/StopSignal.h"
#include "router/hidraw/DeviceNodes.h"
#include "router/hidraw/ReportBuffer.h"

namespace router {

class ReadAhead {
 public:
  /// Begins to read the node, which must not block.
  ReadAhead(std::shared_ptr<const DeviceNodes> nodes, int node);
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;
  ~ReadAhead();

  /// Replaces what the buffer holds by all reports that have been read since the last call. If
  /// there are none, false, with the error number that ended the reading, or 0 while it goes on.
  [[nodiscard]] bool take(ReportBuffer* returnReports, int* returnError);
  /// Readable when take() has something new. Until then it may also be readable.
  [[nodiscard]] int descriptor() const { return news_.get(); }
  /// Reports for which there was no room.
  [[nodiscard]] std::uint64_t lost() const { return lost_.load(std::memory_order_relaxed); }

 private:
  void run();
  /// Reads what waits. Returns the error number that ended it.
  int readWaiting();
  void keep(std::span<const std::uint8_t> report);
  /// Until there is something to read. Returns an error number if there never will be.
  [[nodiscard]] int wait() const;
  void tell() const;

  const std::shared_ptr<const DeviceNodes> nodes_;
  const int node_;
  const platform::FileDescriptor news_;
  StopSignal stop_;
  std::vector<std::uint8_t> report_;  // used by the thread
  std::atomic<std::uint64_t> lost_{0};
  std::mutex mutex_;  // of the two below
  ReportBuffer read_;
  int error_ = 0;
  std::thread thread_;
};

}  // namespace router
