// SPDX-License-Identifier: Apache-2.0

// The control protocol between an application and the job daemon.
//
// Requests and replies alternate, each in a frame: four bytes of length, little-endian, then a
// binary property list of that length. A status request needs nothing else. To change a job, a
// client first asks for permission (Authorize), which the daemon grants for this connection and
// this job, within a short time: to install it (one removal, then one bless) or to remove it. On
// the system's own root a person may be asked first, so the answer may take minutes. Without
// permission, a removal or a bless is refused. A bless carries the helper's executable as an open
// descriptor with the frame's first byte: the caller decides which file is installed by opening it,
// and no path crosses the boundary.
//
// Granting a device to a user, and taking that back (the system's own root only), needs no
// permission beforehand: the daemon has each such request decided for itself.
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

#include "platform/services/DeviceGrants.h"
#include "platform/services/FileDescriptor.h"
#include "platform/services/ServiceError.h"

namespace platform {

inline constexpr std::size_t kMaximumControlBytes = std::size_t{256} * 1024;

/// What a permission covers: one removal and then one bless, or one removal.
enum class ChangePurpose { Install, Remove };

struct ControlRequest {
  enum class Operation { Authorize, Bless, Remove, Status, Grant, Revoke };
  Operation operation = Operation::Status;
  std::string label{};  ///< empty for Status, Grant and Revoke
  bool wait = true;     ///< Remove: whether to reply only after the process has exited
  ChangePurpose purpose = ChangePurpose::Install;  ///< Authorize
  std::string prompt{};  ///< Authorize: the application's words for the person who is asked, or ""
  std::optional<DeviceGrant> grant{};  ///< Grant and Revoke, always
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
  std::string message;  ///< the cause as a sentence; in a status, why nothing starts the router
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
