// SPDX-License-Identifier: Apache-2.0

// What polkit and logind say about this process.
//
// Threading: any thread; waits for the answers, a few seconds at most.
// Errors: reasons, in the findings.
#pragma once

#include <optional>
#include <string>

#include "platform/services/SystemRoot.h"
#include "platform/system/LoginSessions.h"

namespace tool {

struct AuthorityFindings {
  std::string busProblem;     ///< why neither can be asked, or empty
  std::string polkitProblem;  ///< why polkit does not decide, or empty
  /// The login session that this process belongs to; nothing if it belongs to none.
  std::optional<platform::system::SessionState> session{};
  std::string sessionProblem{};  ///< why the session is not known, or empty
};

/// `lookup` tells which session is this process's.
[[nodiscard]] AuthorityFindings askAuthorities(
    const platform::SystemRoot& root,
    const platform::system::SessionLookup& lookup = platform::system::SessionLookup::ofSystem());

}  // namespace tool
