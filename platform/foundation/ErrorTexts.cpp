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
          "The authorization was canceled, so nothing was changed. Ask again to go on."},
    Entry{NSOSStatusErrorDomain, -60007,
          "Nobody could be asked for authorization, so nothing was changed: this program has no "
          "terminal, or is not allowed to ask. Run it in a terminal; on a root of the user's own "
          "it can also be given an answer to use."},

    Entry{NSCocoaErrorDomain, 4097,
          "The connection was interrupted: the program at the other end ended, or ended the "
          "connection. Try again."},
    Entry{NSCocoaErrorDomain, 4099,
          "There is no connection: no such service is installed, it turned the connection down, "
          "or the connection was ended. See that it is installed and current, then connect again."},
    Entry{NSCocoaErrorDomain, 4101,
          "The reply could not be used: none came, or it holds what is not expected. The two "
          "programs may be of different versions; install the current one."},

    Entry{kRouter, -1,
          "The HID event router is not installed, or in another version than this application's. "
          "Install it from this application."},
    Entry{kRouter, -536870208,
          "There is no such device: it was taken away, or its registry entry ID is not one of "
          "now. See which devices there are, then start again."},
    Entry{kRouter, -536870206,
          "The router did not understand the request: an argument is wrong. See the router's log "
          "for which."},
    Entry{kRouter, -536870203,
          "The device is in use by a client that has it for itself. Stop that one first."},
    Entry{kRouter, -536870198,
          "The device cannot be read. See the router's log for the cause, and plug it in again."},
    Entry{kRouter, -536870174,
          "The system does not let the router open the device. Give the router the rights to it, "
          "then start again."},

    Entry{kServices, 1,
          "The job's domain or label is no valid one. This is a mistake in the application."},
    Entry{kServices, 2, "There is no such job, so there is nothing to remove."},
    Entry{kServices, 3,
          "The helper was refused: it is not what its job needs, or claims what belongs to "
          "another job. Install another build of it."},
    Entry{kServices, 4,
          "A file or directory of the system root or of the application's bundle cannot be used. "
          "See the log of the system root for which."},
    Entry{kServices, 5,
          "The job daemon cannot be started or reached. See that it lies beside the application, "
          "and look at the log of the system root."},
    Entry{kServices, 6,
          "That is not permitted: there is no authorization for it, or the system root belongs to "
          "somebody else. Ask for authorization again."},
    Entry{kServices, 7, "The job daemon did not answer in time. Try again."},
    Entry{kServices, 8, "That cannot be done on this kind of system root. Choose another one."},
    Entry{kServices, 9,
          "The application and the job daemon do not understand each other: they are of different "
          "versions. End the daemon and try again."},
    Entry{kServices, 10, "Somebody else is changing this job just now. Try again."},
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
