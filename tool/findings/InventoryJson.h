// What there is on a system root, as JSON.
//
// Threading: any thread.
//
// Text of others goes through the redactor; with Redactor::lettingEverythingThrough() it stays.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tool/findings/Diagnosis.h"
#include "tool/findings/Inventory.h"
#include "tool/report/Redaction.h"

namespace tool {

[[nodiscard]] nlohmann::ordered_json jsonOf(const RouterCopy& copy, const Redactor& redactor);
[[nodiscard]] nlohmann::ordered_json jsonOf(const router::RouterStatus& router,
                                            const Redactor& redactor);
[[nodiscard]] nlohmann::ordered_json jsonOf(const platform::ControlReply& reply,
                                            const Redactor& redactor);
[[nodiscard]] nlohmann::ordered_json jsonOf(const PresenceCheck& presence,
                                            const Redactor& redactor);
[[nodiscard]] nlohmann::ordered_json jsonOf(const Endpoint& endpoint, const Redactor& redactor);
[[nodiscard]] nlohmann::ordered_json jsonOf(const DeviceList& devices, const Redactor& redactor);
[[nodiscard]] nlohmann::ordered_json jsonOf(const Diagnosis& diagnosis, const Redactor& redactor);

/// Indented, with a line feed at the end. All that is not printable ASCII is escaped, so nothing
/// in it acts on a terminal; bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string dumped(const nlohmann::ordered_json& document);

}  // namespace tool
