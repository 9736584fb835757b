// SPDX-License-Identifier: Apache-2.0

#include "input/Presence.h"

#include <utility>

#include "WLHIDAccess/WLHIDEventRouterClient.h"

namespace wlhid {

namespace {

constexpr const char* kInstall = "Install the router from this application.";

bool areEqual(const RouterCopy& one, const RouterCopy& other) {
  return one.versionValue != nullptr && other.versionValue != nullptr &&
         one.versionValue->isEqual(other.versionValue);
}

Presence otherVersion(const std::string& installed, const std::string& own) {
  return {PresenceState::OtherVersion, installed, own,
          "Version " + installed + " of the router is installed, and this application brings " +
              own + ". " + kInstall};
}

}  // namespace

Presence presenceOf(const RouterVersions& versions) {
  const RouterCopy& own = versions.bundle;
  if (!versions.installed)
    return {PresenceState::NotInstalled,
            {},
            own.version,
            "The router is not installed (" + versions.jobProblem + "). " + kInstall};
  const RouterCopy& installed = *versions.installed;
  if (own.state != CopyState::Complete)
    return {PresenceState::OwnCopyUnknown, installed.version, own.version,
            "This application's own copy of the router cannot be used: " + own.problem +
                ". Install the application again."};
  if (installed.state != CopyState::Complete)
    return {PresenceState::InstalledUnknown, installed.version, own.version,
            "The installed router cannot be examined: " + installed.problem + ". " + kInstall};
  if (!areEqual(installed, own)) return otherVersion(installed.version, own.version);
  return {PresenceState::Present, installed.version, own.version,
          "Version " + own.version + " of the router is installed."};
}

/// The framework's answer counts; should it differ, something has changed in between.
Presence Router::presence() {
  const bool isInstalled = WLHIDEventRouterClient::isInstalled();
  Presence presence = presenceOf(readRouterVersions());
  if (isInstalled != static_cast<bool>(presence) &&
      WLHIDEventRouterClient::isInstalled() == isInstalled)
    presence.state = isInstalled ? PresenceState::Present : PresenceState::InstalledUnknown;
  return presence;
}

}  // namespace wlhid
