// SPDX-License-Identifier: Apache-2.0

// The control protocol between an application and the job daemon.
//
// Requests and replies alternate, each in a frame: four bytes of length, little-endian, then a
// binary property list of that length. A status request needs nothing else. To change a job, a
// client first asks for permission (Authorize), which the daemon grants for this connection and
// this job: one removal, then one bless, within a short time. Without it, a removal or a bless is
// refused. A bless carries the helper's executable as an open descriptor with the frame's first
// byte: the caller decides which file is installed by opening it, and no path crosses the boundary.
//
// Threading: values; a FrameReader belongs to one thread.
// Errors: decoding a malformed message gives nothing. Lengths are checked before memory is
//   allocated for them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/services/FileDescriptor.h"
#include "platform/services/ServiceError.h"

namespace platform {

inline constexpr std::size_t kMaximumControlBytes = std::size_t{256} * 1024;

struct ControlRequest {
  enum class Operation { Authorize, Bless, Remove, Status };
  Operation operation = Operation::Status;
  std::string label;  ///< empty for Status
  bool wait = true;   ///< Remove: whether to reply only after the process has exited
};

/// A job as the daemon sees it.
struct JobStatus {
  std::string label;
  std::vector<std::string> services;
  std::int64_t processIdentifier = 0;     ///< 0 while it is not running
  std::int64_t starts = 0;                ///< since the daemon started
  std::int64_t heldBackMilliseconds = 0;  ///< how much longer its start is throttled after a crash
  std::string lastEnd;  ///< "exited with status 1", "ended by signal 9", "could not be started: …";
                        ///< empty before the first end
};

struct ControlReply {
  ServiceErrorCode code = ServiceErrorCode::None;
  std::string message;  ///< the cause as a sentence; empty on success
  std::vector<JobStatus> jobs;
  std::int64_t daemonProcessIdentifier = 0;

  [[nodiscard]] bool succeeded() const { return code == ServiceErrorCode::None; }
};

/// Whole frames, including the length.
[[nodiscard]] std::vector<std::uint8_t> encode(const ControlRequest& request);
[[nodiscard]] std::vector<std::uint8_t> encode(const ControlReply& reply);
/// Take a frame's content, without the length.
[[nodiscard]] std::optional<ControlRequest> decodeControlRequest(
    std::span<const std::uint8_t> content);
[[nodiscard]] std::optional<ControlReply> decodeControlReply(std::span<const std::uint8_t> content);

/// Reads one frame from a stream socket, in any number of pieces, and the descriptor that may come
/// with it.
class FrameReader {
 public:
  enum class State { NeedMore, Complete, Ended, Malformed };

  /// Does one read. Never waits on a non-blocking socket.
  State readFrom(int socket);
  [[nodiscard]] std::span<const std::uint8_t> content() const { return content_; }
  [[nodiscard]] FileDescriptor takeDescriptor() { return std::move(descriptor_); }

 private:
  [[nodiscard]] std::span<std::uint8_t> unfilled();
  State advance(std::size_t count);

  std::array<std::uint8_t, 4> length_{};
  std::vector<std::uint8_t> content_;
  std::size_t filled_ = 0;  // of the length, then of length and content
  FileDescriptor descriptor_;
};

/// Writes a frame, with `descriptor` (-1: none) attached to its first byte. False, with errno, if
/// not all could be written.
bool sendFrame(int socket, std::span<const std::uint8_t> frame, int descriptor);

}  // namespace platform
