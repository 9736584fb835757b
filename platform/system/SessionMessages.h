// SPDX-License-Identifier: Apache-2.0

// What logind says about sessions.
//
// Threading: the bus's thread.
// Errors: null or nothing. A description of a session that lacks anything is none.
#pragma once

#include <optional>
#include <string>

#include "platform/system/BusTypes.h"
#include "platform/system/LoginSessions.h"

namespace platform::system {

inline constexpr const char* kLogind = "org.freedesktop.login1";

/// Empty if there is no such path.
[[nodiscard]] std::string pathOfSession(const std::string& session);
/// Asks for everything about a session.
[[nodiscard]] BusMessage composeSessionQuery(sd_bus* connection, const std::string& path);
[[nodiscard]] std::optional<SessionState> readSession(sd_bus_message* message,
                                                      const std::string& session);

/// What a signal says about changed properties of a session, as far as it is bad news.
struct SessionBadNews {
  bool isInactive = false;
  bool isLocked = false;
};
[[nodiscard]] SessionBadNews readBadNews(sd_bus_message* signal);

}  // namespace platform::system
