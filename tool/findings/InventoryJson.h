// SPDX-License-Identifier: Apache-2.0

// What exists on a system root, as JSON.
//
// Threading: any thread.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "platform/services/Control.h"
#include "router/RouterStatus.h"
#include "tool/findings/Diagnosis.h"
#include "tool/findings/Inventory.h"
#include "tool/findings/PresenceCheck.h"
#include "tool/findings/RouterVersions.h"

namespace tool {

[[nodiscard]] nlohmann::ordered_json jsonOf(const RouterCopy& copy);
[[nodiscard]] nlohmann::ordered_json jsonOf(const router::SessionStatus& session);
[[nodiscard]] nlohmann::ordered_json jsonOf(const router::RouterStatus& router);
[[nodiscard]] nlohmann::ordered_json jsonOf(const platform::ControlReply& reply);
[[nodiscard]] nlohmann::ordered_json jsonOf(const PresenceCheck& presence);
[[nodiscard]] nlohmann::ordered_json jsonOf(const Endpoint& endpoint);
[[nodiscard]] nlohmann::ordered_json jsonOf(const DeviceList& devices);
[[nodiscard]] nlohmann::ordered_json jsonOf(const Diagnosis& diagnosis);

/// Indented, with a line feed at the end. Everything but printable ASCII is escaped, so nothing in
/// it can control a terminal; bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string dumped(const nlohmann::ordered_json& document);

}  // namespace tool
