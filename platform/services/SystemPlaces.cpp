// SPDX-License-Identifier: Apache-2.0

#include "platform/services/SystemPlaces.h"

#include <array>

namespace platform {
namespace {

constexpr std::array kLayersOfAUser{
    JobLayer{"Library/LaunchDaemons", "Library/PrivilegedHelperTools"}};
constexpr std::array kLayersOfTheSystem{JobLayer{"var/lib/wlhid/jobs", "var/lib/wlhid/helpers"},
                                        JobLayer{"usr/lib/wlhid/jobs", "usr/lib/wlhid/helpers"}};

constexpr SystemPlaces kOfAUser{kLayersOfAUser,       "var/run", "var/run", "var/log",
                                "etc/hideventrouter", {},        {}};
// The router is not root there, and has a directory of its own for what it writes.
constexpr SystemPlaces kOfTheSystem{kLayersOfTheSystem,   "run/wlhid",
                                    "run/wlhid-router",   "var/log",
                                    "etc/hideventrouter", "var/lib/wlhid/staging",
                                    "etc/wlhid/trusted.d"};

}  // namespace

const SystemPlaces& placesOfAUser() {
  return kOfAUser;
}

const SystemPlaces& placesOfTheSystem() {
  return kOfTheSystem;
}

}  // namespace platform
