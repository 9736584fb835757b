// What an application and the job daemon say to each other.
//
// Requests and replies in turn, each a frame: its length as four bytes, little-endian, then a
// binary property list of that length. Who only asks for the status, asks once. Who wants to change
// a job asks for leave first (Authorize), which the daemon gives for this connection and this job:
// one removal, then one bless, soon. Without it, a removal or a bless is refused. A bless carries
// the helper's executable as an open descriptor beside the frame's first byte: which file is
// installed is decided by whoever opened it, and no path crosses the border between the two.
//
// Threading: values; a FrameReader belongs to one thread.
// Ownership: values own their content.
// Errors: a message that cannot be decoded gives nothing. Lengths are checked before anything is
//   allocated for them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/services/FileDescriptor.h"
#include "platform/services/ServiceError.h"

namespace platform {

inline constexpr std::size_t maximumControlBytes = std::size_t{256} * 1024;

struct ControlRequest {
  enum class Operation { Authorize, Bless, Remove, Status };
  Operation operation = Operation::Status;
  std::string label;  ///< empty for Status
  bool wait = true;   ///< Remove: whether the reply comes after the process has gone
};

/// One job as the daemon sees it.
struct JobStatus {
  std::string label;
  std::vector<std::string> services;
  std::int64_t processIdentifier = 0;     ///< 0 while it does not run
  std::int64_t starts = 0;                ///< since the daemon came up
  std::int64_t heldBackMilliseconds = 0;  ///< how long it is still held back after it crashed
  std::string lastEnd;  ///< "exited with status 1", "ended by signal 9", "could not be started: …";
                        ///< empty before the first end
};

struct ControlReply {
  ServiceErrorCode code = ServiceErrorCode::None;
  std::string message;  ///< the cause, a sentence; empty on success
  std::vector<JobStatus> jobs;
  std::int64_t daemonProcessIdentifier = 0;

  [[nodiscard]] bool succeeded() const { return code == ServiceErrorCode::None; }
};

/// Whole frames, length and all.
[[nodiscard]] std::vector<std::uint8_t> encode(const ControlRequest& request);
[[nodiscard]] std::vector<std::uint8_t> encode(const ControlReply& reply);
/// A frame's content.
[[nodiscard]] std::optional<ControlRequest> decodeControlRequest(
    std::span<const std::uint8_t> content);
[[nodiscard]] std::optional<ControlReply> decodeControlReply(std::span<const std::uint8_t> content);

/// Takes one frame off a stream socket, in as many pieces as it comes, and the descriptor that may
/// come with it.
class FrameReader {
 public:
  enum class State { NeedMore, Complete, Ended, Malformed };

  /// Reads what is there, once. Never waits on a non-blocking socket.
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

/// Writes a frame, with `descriptor` (-1: none) beside its first byte. False, with errno, when not
/// all could be written.
bool sendFrame(int socket, std::span<const std::uint8_t> frame, int descriptor);

}  // namespace platform
