// SPDX-License-Identifier: Apache-2.0

// Errors between an application and its jobs. Thrown inside services/ and jobd/ and converted to an
// NSError or a reply at their boundaries; the text is a message for a person that names the file
// and the cause.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace platform {

/// Codes of "WLServiceManagementErrorDomain". They are sent over the control socket, so the numbers
/// must not change.
enum class ServiceErrorCode : std::int64_t {
  None = 0,
  InvalidArgument = 1,  ///< domain, label or authorization
  NoSuchJob = 2,
  InvalidImage = 3,       ///< the helper is not a valid image for the job
  FileSystem = 4,         ///< a file or directory of the root or of the bundle
  DaemonUnavailable = 5,  ///< the job daemon cannot be found, started or reached
  NotPermitted = 6,       ///< the root, the endpoint or the caller belongs to another user
  TimedOut = 7,
  NotSupported = 8,            ///< not on this kind of root
  Protocol = 9,                ///< the peer on the control socket violated the protocol
  Busy = 10,                   ///< another caller is changing the job
  Canceled = 11,               ///< the person who was asked dismissed the question
  InteractionNotAllowed = 12,  ///< a person would have to be asked, and nobody can ask one
};

class ServiceError : public std::runtime_error {
 public:
  ServiceError(ServiceErrorCode code, const std::string& text, int systemError = 0)
      : std::runtime_error(text), code_(code), systemError_(systemError) {}
  [[nodiscard]] ServiceErrorCode code() const { return code_; }
  /// The underlying errno, or 0.
  [[nodiscard]] int systemError() const { return systemError_; }

 private:
  ServiceErrorCode code_;
  int systemError_;
};

/// "cannot open X: No such file or directory", for an errno.
[[nodiscard]] ServiceError fileSystemError(const std::string& what, int error);
/// The system's text for an errno.
[[nodiscard]] std::string errorText(int error);

}  // namespace platform
