// SPDX-License-Identifier: Apache-2.0

// Every place at which the client logs, one row per site.
//
// The numbers and texts are data that log readers rely on: they stay the same when the code moves.
//
// Arguments are private: a diagnostic report shows none of them except at sites that say so next to
// their format.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace wlhid {

/// Which of a site's arguments a report shows.
enum class LogShows : std::uint8_t {
  Nothing,
  Number,  ///< the only argument: a boolean or a status
  Code,    ///< the code of the only argument, an error or null
};

struct LogSite {
  std::uint64_t level;
  int line;
  std::string_view function;
  std::string_view format;
  LogShows shows = LogShows::Nothing;
};

inline constexpr std::string_view kLogSourcePath = "WLHIDEventRouterClient";

namespace site {

// clang-format off
inline constexpr LogSite init                      {0,  73, "-[WLHIDEventRouterClient initWithRegistryEntryID:deviceMode:tagDictionary:typeDictionary:]", "called"};
inline constexpr LogSite dealloc                   {0,  90, "-[WLHIDEventRouterClient dealloc]", "called"};
inline constexpr LogSite currentEventRouterStatus  {0, 100, "-[WLHIDEventRouterClient currentEventRouterStatus]", "called"};
inline constexpr LogSite installationStatusChanged {0, 110, "-[WLHIDEventRouterClient _installationStatusChanged:]", "called"};
inline constexpr LogSite updateConnection          {0, 126, "-[WLHIDEventRouterClient _updateConnection]", "called, started = %d", LogShows::Number};
inline constexpr LogSite setStarted                {0, 168, "-[WLHIDEventRouterClient setStarted:]", "called, newStarted = %d", LogShows::Number};
inline constexpr LogSite setClientStatus           {0, 178, "-[WLHIDEventRouterClient setClientStatus:]", "called, newClientStatus = %lu", LogShows::Number};
inline constexpr LogSite openConnection            {0, 194, "-[WLHIDEventRouterClient openConnection]", "called"};
inline constexpr LogSite interruption              {3, 221, "-[WLHIDEventRouterClient openConnection]_block_invoke", "WLHIDEventRouterClient: xpcConnectionToService experienced an interruption"};
inline constexpr LogSite invalidation              {2, 225, "-[WLHIDEventRouterClient openConnection]_block_invoke", "WLHIDEventRouterClient: xpcConnectionToService experienced an invalidation"};
inline constexpr LogSite closeConnection           {0, 239, "-[WLHIDEventRouterClient closeConnection]", "called"};
inline constexpr LogSite handleInterruption        {0, 246, "-[WLHIDEventRouterClient handleInterruption]", "called"};
inline constexpr LogSite handleInvalidation        {0, 255, "-[WLHIDEventRouterClient handleInvalidation]", "called"};
inline constexpr LogSite startListening            {0, 269, "-[WLHIDEventRouterClient startListeningToService]", "called"};
inline constexpr LogSite startError                {3, 271, "-[WLHIDEventRouterClient startListeningToService]_block_invoke", "Error(S): %@", LogShows::Code};
inline constexpr LogSite startReply                {0, 273, "-[WLHIDEventRouterClient startListeningToService]_block_invoke", "Open reply: %@", LogShows::Code};
inline constexpr LogSite startNotPermitted         {3, 283, "-[WLHIDEventRouterClient startListeningToService]_block_invoke", "Error %@ opening HID device - consider adding KQPermissionAccessibility.ensurePrivilegedHelperHIDAccess on 10.15+", LogShows::Code};
inline constexpr LogSite stopListening             {0, 300, "-[WLHIDEventRouterClient stopListeningToService]", "called"};
inline constexpr LogSite stopError                 {3, 302, "-[WLHIDEventRouterClient stopListeningToService]_block_invoke", "Error(ST): %@", LogShows::Code};
inline constexpr LogSite receivedData              {0, 314, "-[WLHIDEventRouterClient receivedData:forReportID:]", "Received for reportID %u: %@"};
inline constexpr LogSite receivedElementValues     {0, 328, "-[WLHIDEventRouterClient receivedElementValues:]", "Received HID report %u: usage=%u, usagePage=%u, cookie=%u, integerValue=%ld, bytes=%@"};
// clang-format on

/// All of the above.
inline constexpr std::array kTable{
    &init,
    &dealloc,
    &currentEventRouterStatus,
    &installationStatusChanged,
    &updateConnection,
    &setStarted,
    &setClientStatus,
    &openConnection,
    &interruption,
    &invalidation,
    &closeConnection,
    &handleInterruption,
    &handleInvalidation,
    &startListening,
    &startError,
    &startReply,
    &startNotPermitted,
    &stopListening,
    &stopError,
    &receivedData,
    &receivedElementValues,
};

}  // namespace site
}  // namespace wlhid
