// SPDX-License-Identifier: Apache-2.0

#include "platform/services/SystemRoot.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

namespace platform {
namespace {

namespace fs = std::filesystem;

/// Which directory is the system's own root, and whom its directories belong to.
struct System {
  fs::path directory = "/";
  uid_t owner = 0;
};

struct CurrentRoot {
  std::mutex mutex;
  std::optional<SystemRoot> root;
  System system;
};

CurrentRoot& currentRoot() {
  static auto* const slot = new CurrentRoot;  // outlives every static that may still use it
  return *slot;
}

System theSystem() {
  const std::lock_guard lock(currentRoot().mutex);
  return currentRoot().system;
}

bool isTheSystems(const struct stat& status) {
  struct stat system {};
  return ::stat(theSystem().directory.c_str(), &system) == 0 && status.st_dev == system.st_dev &&
         status.st_ino == system.st_ino;
}

/// In a sandbox the router's endpoints may be all that there is of it.
bool hasEndpointOfRouter(const fs::path& directory) {
  std::error_code unknown;
  const fs::directory_iterator entries(directory, unknown);
  return std::any_of(begin(entries), end(entries), [](const fs::directory_entry& entry) {
    std::error_code ignored;
    return entry.path().filename().string().starts_with(kSystemJobLabel) &&
           entry.is_socket(ignored);
  });
}

/// Whether the router is there for all users.
bool isInstalledForAll(const fs::path& system) {
  const SystemPlaces& places = placesOfTheSystem();
  std::error_code unknown;
  return fs::is_directory(system / places.layers.back().jobs, unknown) ||
         hasEndpointOfRouter(system / places.run);
}

/// The absolute path in an environment variable. Relative paths are ignored, as the XDG base
/// directory rules require.
std::optional<fs::path> absolutePathFrom(const char* variable) {
  const char* value = secure_getenv(variable);
  if (value == nullptr || *value != '/') return std::nullopt;
  return fs::path(value);
}

fs::path usersOwnRoot() {
  if (const auto state = absolutePathFrom("XDG_STATE_HOME")) return *state / "wlhid/root";
  if (const auto home = absolutePathFrom("HOME")) return *home / ".local/state/wlhid/root";
  throw std::runtime_error(
      "no system root: WLHID_ROOT, XDG_STATE_HOME and HOME are all unset or not absolute");
}

fs::path normalised(const fs::path& directory) {
  fs::path path = fs::absolute(directory).lexically_normal();
  if (!path.has_filename() && path.has_relative_path()) path = path.parent_path();
  return path;
}

std::string_view checkedLabel(std::string_view label) {
  if (!SystemRoot::isValidLabel(label))
    throw std::invalid_argument("not a valid label or service name");
  return label;
}

bool isLabelCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '-' || c == '_';
}

}  // namespace

SystemRoot::SystemRoot(const fs::path& directory) : path_(normalised(directory)) {}

SystemRoot::SystemRoot(FileDescriptor directory, fs::path path)
    : path_(std::move(path)),
      directory_(std::make_shared<const FileDescriptor>(std::move(directory))) {}

SystemRoot SystemRoot::current() {
  {
    const std::lock_guard lock(currentRoot().mutex);
    if (currentRoot().root) return *currentRoot().root;
  }
  if (const char* chosen = secure_getenv("WLHID_ROOT"); chosen != nullptr && *chosen != '\0')
    return SystemRoot(chosen);
  const fs::path system = theSystem().directory;
  return SystemRoot(isInstalledForAll(system) ? system : usersOwnRoot());
}

void SystemRoot::setCurrent(SystemRoot root) {
  const std::lock_guard lock(currentRoot().mutex);
  currentRoot().root = std::move(root);
}

void SystemRoot::resetCurrent() {
  const std::lock_guard lock(currentRoot().mutex);
  currentRoot().root.reset();
}

bool SystemRoot::isSystem() const {
  struct stat status {};
  const int failed =
      directory_ ? ::fstat(directory_->get(), &status) : ::lstat(path_.c_str(), &status);
  return failed == 0 && isTheSystems(status);
}

bool SystemRoot::isSystem(int directory) {
  struct stat status {};
  return ::fstat(directory, &status) == 0 && isTheSystems(status);
}

const SystemPlaces& SystemRoot::places() const {
  return isSystem() ? placesOfTheSystem() : placesOfAUser();
}

uid_t SystemRoot::systemOwner() {
  return theSystem().owner;
}

void SystemRoot::setSystemForTests(const fs::path& directory) {
  const std::lock_guard lock(currentRoot().mutex);
  currentRoot().system = directory.empty() ? System() : System{directory, ::geteuid()};
}

fs::path SystemRoot::jobFile(std::string_view label) const {
  return path_ / places().layers.front().jobs / (std::string(checkedLabel(label)) + ".plist");
}

fs::path SystemRoot::helperTool(std::string_view label) const {
  return path_ / places().layers.front().helpers / checkedLabel(label);
}

fs::path SystemRoot::endpoint(std::string_view service) const {
  return path_ / places().run / (std::string(checkedLabel(service)) + ".sock");
}

fs::path SystemRoot::controlEndpoint() const {
  return path_ / places().run / "jobd.sock";
}

fs::path SystemRoot::systemLog() const {
  return path_ / places().log / "system.log";
}

fs::path SystemRoot::deviceSources() const {
  return path_ / places().deviceSources;
}

bool SystemRoot::isValidLabel(std::string_view label) {
  constexpr std::size_t longest = 200;  // leaves room in a file name for a prefix and suffix
  return !label.empty() && label.size() <= longest && label.front() != '.' &&
         std::all_of(label.begin(), label.end(), isLabelCharacter);
}

}  // namespace platform
