// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/ErrorTexts.h"

#include <algorithm>
#include <array>
#include <limits>
#include <system_error>

#include "platform/foundation/NSError.h"
#include "platform/foundation/UTF8Validator.h"

namespace platform {
namespace {

struct Entry {
  std::string_view domain;
  std::int64_t code;
  std::string_view text;
};

constexpr std::string_view kRouter = "HIDEventRouterDomain";
constexpr std::string_view kServices = "WLServiceManagementErrorDomain";

constexpr std::array kTexts{
    Entry{NSOSStatusErrorDomain, -60005,
          "The authorization was denied, so nothing was changed. Ask again, and answer yes."},
    Entry{NSOSStatusErrorDomain, -60006,
          "The authorization was canceled, so nothing was changed. Ask again to continue."},
    Entry{NSOSStatusErrorDomain, -60007,
          "Authorization could not be requested, so nothing was changed: this program has no "
          "terminal or is not allowed to ask. Run it in a terminal; on a user's own root it can "
          "also be given the answer in advance."},

    Entry{NSCocoaErrorDomain, 4097,
          "The connection was interrupted: the other program exited or closed it. Try again."},
    Entry{NSCocoaErrorDomain, 4099,
          "There is no connection: the service is not installed, it refused the connection, or "
          "the connection was closed. Check that it is installed and current, then connect again."},
    Entry{NSCocoaErrorDomain, 4101,
          "The reply was missing or not what was expected. The two programs may have different "
          "versions; install the current one."},

    Entry{kRouter, -1,
          "The HID event router is not installed, or its version is not this application's. "
          "Install it from this application."},
    Entry{kRouter, -536870208,
          "Device not found: it was disconnected, or its registry entry ID is no longer valid. "
          "List the devices, then start again."},
    Entry{kRouter, -536870206,
          "The router rejected the request: an argument is invalid. The router's log says which."},
    Entry{kRouter, -536870203,
          "Another client is using the device exclusively. Stop that client first."},
    Entry{kRouter, -536870198,
          "The device cannot be read. See the router's log for the cause, then reconnect it."},
    Entry{kRouter, -536870187,
          "Too many requests of this user's are open at the router. Try again in a while."},
    Entry{kRouter, -536870174,
          "The system does not let the router open the device. Give the router permission, then "
          "start again."},

    Entry{kRouter, -536870169,
          "The recording has been played to its end. Start again to play it once more."},
    Entry{
        kRouter, -536870165,
        "The routing was given up: another request took its place, or somebody ended the session. "
        "Start again to continue."},
    Entry{kRouter, -536870160, "There is no such session; it may have ended. List the sessions."},

    Entry{kServices, 1,
          "The job's domain or label is invalid. This is a mistake in the application."},
    Entry{kServices, 2, "There is no such job, so there is nothing to remove."},
    Entry{kServices, 3,
          "The helper was refused: it is not valid for its job, or it claims a service of another "
          "job. Install another build of it."},
    Entry{kServices, 4,
          "A file or directory of the system root or of the application's bundle cannot be used. "
          "The log of the system root says which."},
    Entry{kServices, 5,
          "The job daemon cannot be started or reached. Check that it is installed with the "
          "application, and see the log of the system root."},
    Entry{kServices, 6,
          "Permission denied: there is no authorization for this, or the system root belongs to "
          "another user. Ask for authorization again."},
    Entry{kServices, 7, "The job daemon did not answer in time. Try again."},
    Entry{kServices, 8, "This is not supported on this kind of system root. Choose another one."},
    Entry{kServices, 9,
          "The application and the job daemon do not understand each other: they have different "
          "versions. Stop the daemon and try again."},
    Entry{kServices, 10, "Another program is changing this job. Try again."},
    Entry{kServices, 11,
          "The question was dismissed, so nothing was changed. Ask again to continue."},
    Entry{
        kServices, 12,
        "Somebody would have to be asked, and nobody can be: no authentication agent runs in this "
        "login session. Log in at a desktop, or run this as the superuser."},
};

/// The system's text, unless it is not UTF-8.
std::optional<std::string> systemText(std::int64_t code) {
  if (code <= 0 || code > std::numeric_limits<int>::max()) return std::nullopt;
  std::string text = std::generic_category().message(static_cast<int>(code));
  if (!isValidUTF8(text)) return std::nullopt;
  return text;
}

}  // namespace

std::optional<std::string> textOfError(std::string_view domain, std::int64_t code) {
  if (domain == NSPOSIXErrorDomain) return systemText(code);
  const auto* const entry = std::find_if(kTexts.begin(), kTexts.end(), [&](const Entry& each) {
    return each.domain == domain && each.code == code;
  });
  if (entry == kTexts.end()) return std::nullopt;
  return std::string(entry->text);
}

}  // namespace platform
