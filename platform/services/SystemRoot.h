// SPDX-License-Identifier: Apache-2.0

// The directory that contains all the system's absolute paths.
//
//   <root>/Library/LaunchDaemons/<label>.plist     a job: Label, ProgramArguments, MachServices
//   <root>/Library/PrivilegedHelperTools/<label>   the installed executable
//   <root>/var/run/<service>.sock                  the endpoint of a service
//   <root>/var/run/jobd.sock                       the job daemon's control endpoint
//   <root>/var/log/system.log                      what jobs write
//   <root>/etc/hideventrouter/*.plist              device sources of the reference router
//   <root>/etc/hideventrouter/recordings/*         the recordings that they play
//
// The system's own root, "/", has other places (SystemPlaces.h). It is recognised by the directory,
// not by its path: a root is the system's own if its directory is the one that "/" is.
//
// A root is identified by its path until it is opened (RootFiles.h); after that it is the directory
// that was opened, even if something else is put at that path.
//
// Threading: SystemRoot is a value. current() and setCurrent() may be called from any thread.
// Ownership: copies of an opened root share its descriptor.
// Errors: current() throws std::runtime_error if no root can be determined (no HOME, no XDG
//   directories), naming what is missing. A directory that cannot be examined is not the system's.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string_view>

#include "platform/services/FileDescriptor.h"
#include "platform/services/SystemPlaces.h"

namespace platform {

/// The name (in LISTEN_FDNAMES) of the root's directory, whose open descriptor a job receives with
/// its sockets. No service can have this name.
inline constexpr std::string_view kRootDescriptorName = ".root";

class SystemRoot {
 public:
  /// Made absolute; need not exist yet.
  explicit SystemRoot(const std::filesystem::path& directory);
  /// The root that is open as `directory`. The path is only for messages.
  SystemRoot(FileDescriptor directory, std::filesystem::path path);

  /// The root set by setCurrent(); else WLHID_ROOT (secure_getenv); else the system's own if the
  /// router's package is installed; else the user's own, "wlhid/root" under XDG_STATE_HOME or
  /// ~/.local/state.
  static SystemRoot current();
  static void setCurrent(SystemRoot root);
  /// Undoes setCurrent().
  static void resetCurrent();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  /// The descriptor, or -1 if it has not been opened.
  [[nodiscard]] int directory() const { return directory_ ? directory_->get() : -1; }
  /// Whether this is the system's own: jobs then belong to systemd and the authorization to polkit.
  [[nodiscard]] bool isSystem() const;
  /// The same for an open directory.
  [[nodiscard]] static bool isSystem(int directory);
  [[nodiscard]] const SystemPlaces& places() const;

  /// The user to whom the directories of the system's own root belong: the superuser.
  [[nodiscard]] static uid_t systemOwner();
  /// For tests: this directory, instead of "/", is the system's own root, and its directories
  /// belong to the effective user. An empty path restores "/".
  static void setSystemForTests(const std::filesystem::path& directory);

  // Where a new job's files go. On the system's own root an installed job may be another layer's.
  [[nodiscard]] std::filesystem::path jobFile(std::string_view label) const;
  [[nodiscard]] std::filesystem::path helperTool(std::string_view label) const;
  [[nodiscard]] std::filesystem::path endpoint(std::string_view service) const;
  [[nodiscard]] std::filesystem::path controlEndpoint() const;
  [[nodiscard]] std::filesystem::path systemLog() const;
  [[nodiscard]] std::filesystem::path deviceSources() const;

  /// Labels and service names become file names: 1 to 200 letters, digits, ".", "-" and "_", not
  /// starting with ".".
  [[nodiscard]] static bool isValidLabel(std::string_view label);

 private:
  std::filesystem::path path_;
  std::shared_ptr<const FileDescriptor> directory_;
};

}  // namespace platform
