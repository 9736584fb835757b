// SPDX-License-Identifier: Apache-2.0

#include "c/Failures.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <string_view>

#include "platform/foundation/PrintableText.h"

namespace wlhid::abi {

namespace {

struct Meaning {
  std::string_view domain;
  std::int64_t code;
  wlhid_code meaning;
};

constexpr std::string_view kRouter = "HIDEventRouterDomain";
constexpr std::string_view kPlatform = "NSOSStatusErrorDomain";
constexpr std::string_view kConnection = "NSCocoaErrorDomain";
constexpr std::string_view kServices = "WLServiceManagementErrorDomain";

constexpr std::array kMeanings{
    Meaning{kRouter, -1, WLHID_NO_ROUTER},
    Meaning{kRouter, -536870208, WLHID_NO_DEVICE},
    Meaning{kRouter, -536870206, WLHID_BAD_ARGUMENT},
    Meaning{kRouter, -536870203, WLHID_BUSY},
    Meaning{kRouter, -536870187, WLHID_BUSY},
    Meaning{kRouter, -536870174, WLHID_NOT_PERMITTED},
    Meaning{kRouter, -536870169, WLHID_ENDED},
    Meaning{kRouter, -536870165, WLHID_ENDED},
    Meaning{kPlatform, -60005, WLHID_NOT_PERMITTED},
    Meaning{kPlatform, -60006, WLHID_CANCELED},
    Meaning{kPlatform, -60007, WLHID_NOBODY_TO_ASK},
    Meaning{kConnection, 4097, WLHID_NO_ROUTER},
    Meaning{kConnection, 4099, WLHID_NO_ROUTER},
    Meaning{kServices, 6, WLHID_NOT_PERMITTED},
    Meaning{kServices, 7, WLHID_TIMED_OUT},
    Meaning{kServices, 10, WLHID_BUSY},
    Meaning{kServices, 11, WLHID_CANCELED},
    Meaning{kServices, 12, WLHID_NOBODY_TO_ASK},
    Meaning{kErrorDomain, static_cast<std::int64_t>(ErrorCode::NoAnswer), WLHID_TIMED_OUT},
    Meaning{kErrorDomain, static_cast<std::int64_t>(ErrorCode::NotThere), WLHID_NO_ROUTER},
};

/// Of a fixed size, so that keeping the words cannot fail.
constexpr std::size_t kLongest = 2048;
thread_local std::array<char, kLongest> lastError{};

void keepWords(std::string_view text) {
  const std::size_t length = std::min(text.size(), kLongest - 1);
  std::memcpy(lastError.data(), text.data(), length);
  lastError[length] = '\0';
}

}  // namespace

wlhid_code codeOf(const Error& error) {
  const auto* const found =
      std::find_if(kMeanings.begin(), kMeanings.end(), [&](const Meaning& each) {
        return each.domain == error.domain() && each.code == error.code();
      });
  return found == kMeanings.end() ? WLHID_FAILED : found->meaning;
}

int fail(wlhid_code code, const std::string& text) noexcept try {
  keepWords(platform::printableLine(text, kLongest));
  return code;
} catch (const std::exception&) {
  keepWords("It failed, and memory is too short to say why.");
  return code;
}

int badArgument(const char* which) noexcept {
  std::array<char, 128> text{};
  std::snprintf(text.data(), text.size(), "%s must not be null. This is a mistake in the program.",
                which);
  std::memcpy(lastError.data(), text.data(), text.size());
  return WLHID_BAD_ARGUMENT;
}

}  // namespace wlhid::abi

using namespace wlhid::abi;  // NOLINT: what follows is the C interface of it

const char* wlhid_last_error(void) {
  return lastError.data();
}

const char* wlhid_code_text(int code) {
  switch (code) {
    case WLHID_OK:
      return "It worked.";
    case WLHID_AGAIN:
      return "Nothing waits. Poll the descriptor, then ask again.";
    case WLHID_BAD_ARGUMENT:
      return "An argument is invalid. This is a mistake in the program.";
    case WLHID_NO_MEMORY:
      return "There is not enough memory.";
    case WLHID_NO_ROUTER:
      return "The router is not installed, or does not serve applications here. Install it.";
    case WLHID_NO_DEVICE:
      return "The device is not there. Connect it, or list the devices.";
    case WLHID_NOT_PERMITTED:
      return "Permission was denied. Ask again, or ask an administrator.";
    case WLHID_CANCELED:
      return "The question was canceled. Ask again to continue.";
    case WLHID_NOBODY_TO_ASK:
      return "Consent is needed, and there is no way to ask for it. Use a terminal, or provide a "
             "consent function.";
    case WLHID_BUSY:
      return "Another program has the device, or there are too many requests. Try again later.";
    case WLHID_TIMED_OUT:
      return "There was no answer in time. Try again.";
    case WLHID_ENDED:
      return "The recording is over, or somebody ended the session. Start again to continue.";
    default:
      return "It failed. wlhid_last_error() says why.";
  }
}
