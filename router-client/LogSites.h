// Every place at which the client logs, one row a site.
//
// The numbers and texts are data that readers of logs rely on: they stay as they are when the code
// around them moves.
//
// Threading, Ownership, Errors, Order: constants.
#pragma once

#include <cstdint>
#include <string_view>

namespace wlhid {

struct LogSite {
  std::uint64_t level;
  int line;
  std::string_view function;
  std::string_view format;
};

inline constexpr std::string_view kLogSourcePath = "WLHIDEventRouterClient";

namespace site {

// clang-format off
inline constexpr LogSite init                      {0,  73, "-[WLHIDEventRouterClient initWithRegistryEntryID:deviceMode:tagDictionary:typeDictionary:]", "called"};
inline constexpr LogSite dealloc                   {0,  90, "-[WLHIDEventRouterClient dealloc]", "called"};
inline constexpr LogSite currentEventRouterStatus  {0, 100, "-[WLHIDEventRouterClient currentEventRouterStatus]", "called"};
inline constexpr LogSite installationStatusChanged {0, 110, "-[WLHIDEventRouterClient _installationStatusChanged:]", "called"};
inline constexpr LogSite updateConnection          {0, 126, "-[WLHIDEventRouterClient _updateConnection]", "called, started = %d"};
inline constexpr LogSite setStarted                {0, 168, "-[WLHIDEventRouterClient setStarted:]", "called, newStarted = %d"};
inline constexpr LogSite setClientStatus           {0, 178, "-[WLHIDEventRouterClient setClientStatus:]", "called, newClientStatus = %lu"};
inline constexpr LogSite openConnection            {0, 194, "-[WLHIDEventRouterClient openConnection]", "called"};
inline constexpr LogSite interruption              {3, 221, "-[WLHIDEventRouterClient openConnection]_block_invoke", "WLHIDEventRouterClient: xpcConnectionToService experienced an interruption"};
inline constexpr LogSite invalidation              {2, 225, "-[WLHIDEventRouterClient openConnection]_block_invoke", "WLHIDEventRouterClient: xpcConnectionToService experienced an invalidation"};
inline constexpr LogSite closeConnection           {0, 239, "-[WLHIDEventRouterClient closeConnection]", "called"};
inline constexpr LogSite handleInterruption        {0, 246, "-[WLHIDEventRouterClient handleInterruption]", "called"};
inline constexpr LogSite handleInvalidation        {0, 255, "-[WLHIDEventRouterClient handleInvalidation]", "called"};
inline constexpr LogSite startListening            {0, 269, "-[WLHIDEventRouterClient startListeningToService]", "called"};
inline constexpr LogSite startError                {3, 271, "-[WLHIDEventRouterClient startListeningToService]_block_invoke", "Error(S): %@"};
inline constexpr LogSite startReply                {0, 273, "-[WLHIDEventRouterClient startListeningToService]_block_invoke", "Open reply: %@"};
inline constexpr LogSite startNotPermitted         {3, 283, "-[WLHIDEventRouterClient startListeningToService]_block_invoke", "Error %@ opening HID device - consider adding KQPermissionAccessibility.ensurePrivilegedHelperHIDAccess on 10.15+"};
inline constexpr LogSite stopListening             {0, 300, "-[WLHIDEventRouterClient stopListeningToService]", "called"};
inline constexpr LogSite stopError                 {3, 302, "-[WLHIDEventRouterClient stopListeningToService]_block_invoke", "Error(ST): %@"};
inline constexpr LogSite receivedData              {0, 314, "-[WLHIDEventRouterClient receivedData:forReportID:]", "Received for reportID %u: %@"};
inline constexpr LogSite receivedElementValues     {0, 328, "-[WLHIDEventRouterClient receivedElementValues:]", "Received HID report %u: usage=%u, usagePage=%u, cookie=%u, integerValue=%ld, bytes=%@"};
// clang-format on

}  // namespace site
}  // namespace wlhid
