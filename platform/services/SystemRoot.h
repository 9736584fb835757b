// The directory under which all absolute paths of the system's interface lie.
//
//   <root>/Library/LaunchDaemons/<label>.plist        the job: Label, ProgramArguments,
//   MachServices <root>/Library/PrivilegedHelperTools/<label>      the installed executable
//   <root>/var/run/<service>.sock                     the endpoint of a service
//   <root>/var/run/jobd.sock                          the job daemon's control endpoint
//   <root>/var/log/system.log                         what jobs write
//   <root>/etc/hideventrouter/*.plist                 device sources of the reference router
//   <root>/etc/hideventrouter/recordings/*            what they play
//
// A root is named by its path until it is opened (RootFiles.h); from then on it is the directory
// that was opened, whatever comes to stand at that path.
//
// Threading: SystemRoot is a value. current() and setCurrent() may be called from any thread.
// Ownership: copies of an opened root share its descriptor.
// Errors: a root that cannot be determined (no HOME, no XDG directories) throws std::runtime_error
//   naming what is missing.
#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "platform/services/FileDescriptor.h"

namespace platform {

/// What a job's starter calls the root's directory, which it hands over open beside the job's
/// sockets (LISTEN_FDNAMES). No service can have this name.
inline constexpr std::string_view rootDescriptorName = ".root";

class SystemRoot {
 public:
  /// Made absolute; need not exist yet.
  explicit SystemRoot(std::filesystem::path directory);
  /// The root that is open as `directory`. Its path is for people.
  SystemRoot(FileDescriptor directory, std::filesystem::path path);

  /// setCurrent()'s root; else WLHID_ROOT (secure_getenv); else the user's own, "wlhid/root" under
  /// XDG_STATE_HOME or
  /// ~/.local/state.
  static SystemRoot current();
  static void setCurrent(SystemRoot root);
  /// Back to what the environment says.
  static void resetCurrent();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  /// -1 unless it was opened.
  [[nodiscard]] int directory() const { return directory_ ? directory_->get() : -1; }
  /// Whether this is "/": jobs then belong to systemd and the authorization to polkit.
  [[nodiscard]] bool isSystem() const { return path_ == "/"; }

  [[nodiscard]] std::filesystem::path jobFile(std::string_view label) const;
  [[nodiscard]] std::filesystem::path helperTool(std::string_view label) const;
  [[nodiscard]] std::filesystem::path endpoint(std::string_view service) const;
  [[nodiscard]] std::filesystem::path controlEndpoint() const;
  [[nodiscard]] std::filesystem::path systemLog() const;
  [[nodiscard]] std::filesystem::path deviceSources() const;

  /// Labels and service names become file names: 1 to 200 characters of letters, digits, ".", "-"
  /// and "_", not beginning with ".".
  [[nodiscard]] static bool isValidLabel(std::string_view label);

 private:
  std::filesystem::path path_;
  std::shared_ptr<const FileDescriptor> directory_;
};

}  // namespace platform
