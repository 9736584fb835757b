// SPDX-License-Identifier: Apache-2.0

// The router and its installation, and names, for C.
#include <algorithm>
#include <cstring>
#include <string>

#include "WLHIDAccess/InputRouter.h"
#include "c/Failures.h"

namespace {

using namespace wlhid::abi;  // NOLINT: what follows is the C interface of it
using wlhid::Consent;
using wlhid::PresenceState;

static_assert(static_cast<int>(PresenceState::Present) == WLHID_PRESENT);
static_assert(static_cast<int>(PresenceState::OwnCopyUnknown) == WLHID_OWN_COPY_UNKNOWN);

std::string wordsOf(const char* prompt) {
  return prompt == nullptr ? std::string() : std::string(prompt);
}

Consent consentOf(int code) {
  if (code == WLHID_OK) return Consent::Given;
  if (code == WLHID_CANCELED) return Consent::Canceled;
  return code == WLHID_NOBODY_TO_ASK ? Consent::Impossible : Consent::Denied;
}

}  // namespace

const char* wlhid_version(void) {
  return WLHID_VERSION;
}

uint32_t wlhid_abi_version(void) {
  return WLHID_ABI_VERSION;
}

size_t wlhid_usage_name(uint32_t usage_page, uint32_t usage, char* buffer, size_t size) {
  std::size_t needed = 0;
  guarded([&] {
    const std::string name = wlhid::usageName(usage_page, usage);
    needed = name.size() + 1;
    if (buffer == nullptr || size == 0) return WLHID_OK;
    const std::size_t length = std::min(name.size(), size - 1);
    std::memcpy(buffer, name.data(), length);
    buffer[length] = '\0';
    return WLHID_OK;
  });
  return needed;
}

int wlhid_router_presence(wlhid_presence* returned) {
  if (returned == nullptr) return badArgument("returned");
  return guarded([&] {
    thread_local wlhid::Presence presence;
    presence = wlhid::Router::presence();
    *returned = {static_cast<std::uint32_t>(presence.state), 0, presence.installedVersion.c_str(),
                 presence.ownVersion.c_str(), presence.text.c_str()};
    return WLHID_OK;
  });
}

int wlhid_router_use_bundle(const char* directory) {
  if (directory == nullptr) return badArgument("directory");
  return guarded([&] {
    wlhid::Router::useBundle(directory);
    return WLHID_OK;
  });
}

int wlhid_router_install(const char* prompt) {
  return guarded([&] {
    wlhid::Router::install(wordsOf(prompt));
    return WLHID_OK;
  });
}

int wlhid_router_remove(const char* prompt) {
  return guarded([&] {
    wlhid::Router::remove(wordsOf(prompt));
    return WLHID_OK;
  });
}

int wlhid_router_set_consent(wlhid_consent_function function, void* context) {
  return guarded([&] {
    if (function == nullptr) {
      wlhid::Router::setConsentAgent(nullptr);
    } else {
      wlhid::Router::setConsentAgent([function, context](const std::string& prompt) {
        return consentOf(function(prompt.c_str(), context));
      });
    }
    return WLHID_OK;
  });
}
