// SPDX-License-Identifier: Apache-2.0

// wlhid-jobd --system: the daemon of the system's own root.
#pragma once

namespace jobd {

/// Serves the socket that systemd passes, until nobody has called for a while. Throws if there is
/// none, or the system's directories cannot be trusted.
void serveSystem();

}  // namespace jobd
