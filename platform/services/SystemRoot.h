// The directory under which all absolute paths of the system's interface lie.
//
//   <root>/Library/LaunchDaemons/<label>.plist        the job: Label, ProgramArguments,
//   MachServices <root>/Library/PrivilegedHelperTools/<label>      the installed executable
//   <root>/var/run/<service>.sock                     the endpoint of a service
//   <root>/var/run/jobd.sock                          the job daemon's control endpoint
//   <root>/var/log/system.log                         what jobs write
//   <root>/etc/hideventrouter/*.plist                 device sources of the reference router
//
// Threading: SystemRoot is a value. current() and setCurrent() may be called from any thread.
// Ownership, Order: none.
// Errors: a root that cannot be determined (no HOME, no XDG directories) throws std::runtime_error
// naming what is missing.
#pragma once

#include <filesystem>
#include <string_view>

namespace platform {

class SystemRoot {
 public:
  /// Made absolute; need not exist yet.
  explicit SystemRoot(std::filesystem::path directory);

  /// setCurrent()'s root; else WLHID_ROOT (secure_getenv); else the user's own, "wlhid/root" under
  /// XDG_STATE_HOME or
  /// ~/.local/state.
  static SystemRoot current();
  static void setCurrent(SystemRoot root);
  /// Back to what the environment says.
  static void resetCurrent();

  [[nodiscard]] const std::filesystem::path& path() const { return directory_; }
  /// Whether this is "/": jobs then belong to systemd and the authorization to polkit.
  [[nodiscard]] bool isSystem() const { return directory_ == "/"; }

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
  std::filesystem::path directory_;
};

}  // namespace platform
