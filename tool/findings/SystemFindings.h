// SPDX-License-Identifier: Apache-2.0

// What there is on the system's own root besides what every root has: the places that only the
// superuser may change, the sockets on which systemd listens, what polkit and logind say about the
// caller, and what the router lets the caller route.
//
// Asking the router or the job daemon starts it, as every connection does.
//
// Threading: the main thread; waits for each answer, for a limited time.
// Errors: a part that cannot be read has the reason in its `problem`; the parts do not affect each
//   other.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/services/SystemRoot.h"
#include "router/RouterStatus.h"
#include "router/control/DeviceListing.h"
#include "tool/findings/Authorities.h"
#include "tool/findings/Endpoint.h"

namespace tool {

enum class UnitState {
  Missing,  ///< no package brings it
  Masked,   ///< an administrator forbids it
  Present,
};

/// A socket on which systemd listens.
struct SocketUnit {
  std::string name;
  UnitState state = UnitState::Missing;
  Endpoint endpoint;
};

/// What the router says to this user.
struct RouterAnswers {
  bool asked = false;
  std::optional<router::RouterStatus> status{};
  std::optional<std::vector<router::ListedDevice>> devices{};
  std::string problem{};  ///< why something is missing
};

/// A directory that nothing is used from.
struct PlaceProblem {
  std::string path;
  std::string problem;
  bool isOpenToOthers = false;  ///< somebody but the superuser may change it
};

struct SystemFindings {
  std::vector<PlaceProblem> placeProblems;
  std::vector<SocketUnit> routerSockets;
  SocketUnit daemonSocket;
  RouterAnswers router;
  AuthorityFindings authorities;
};

/// Whether clients would connect to it.
[[nodiscard]] bool isOpen(const Endpoint& endpoint);
/// `isInstalled`: otherwise there is no router to ask.
[[nodiscard]] SystemFindings takeSystemFindings(const platform::SystemRoot& root, bool isInstalled);

}  // namespace tool
