// What can go wrong between an application and its jobs.
//
// Threading: values.
// Errors: this is one. Thrown inside services/ and jobd/ and turned into an NSError or a reply at
//   their edges; the text is a sentence for people that names the file and the cause.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace platform {

/// Codes of "WLServiceManagementErrorDomain". They cross the control socket, so their numbers stay.
enum class ServiceErrorCode : std::int64_t {
  None = 0,
  InvalidArgument = 1,  ///< domain, label or authorization
  NoSuchJob = 2,
  InvalidImage = 3,       ///< the helper is not what it has to be
  FileSystem = 4,         ///< a file or directory of the root, or of the bundle
  DaemonUnavailable = 5,  ///< the job daemon cannot be found, started or reached
  NotPermitted = 6,       ///< the root, the endpoint or the caller belongs to somebody else
  TimedOut = 7,
  NotSupported = 8,  ///< not on this kind of root
  Protocol = 9,      ///< the other end of the control socket does not keep to the protocol
  Busy = 10,         ///< the job is being changed by somebody else
};

class ServiceError : public std::runtime_error {
 public:
  ServiceError(ServiceErrorCode code, const std::string& text, int systemError = 0)
      : std::runtime_error(text), code_(code), systemError_(systemError) {}
  [[nodiscard]] ServiceErrorCode code() const { return code_; }
  /// The system's error number behind it, 0 where there is none.
  [[nodiscard]] int systemError() const { return systemError_; }

 private:
  ServiceErrorCode code_;
  int systemError_;
};

/// "cannot open X: No such file or directory", for the error number given.
[[nodiscard]] ServiceError fileSystemError(const std::string& what, int error);
/// The system's text for an error number.
[[nodiscard]] std::string errorText(int error);

}  // namespace platform
