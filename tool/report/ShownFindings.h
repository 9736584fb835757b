// What a report without input shows of what there is on a system root: known keys, and of their
// values truth values, words of this program's own, and what ShownLines.h calls likely. Texts,
// paths, names, users and registry entry IDs are not among them.
//
// Threading: one thread.
// Ownership: values.
// Order: devices are counted as they come.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tool/findings/Diagnosis.h"
#include "tool/findings/Inventory.h"
#include "tool/report/ShownLines.h"
#include "tool/routing/Trial.h"

namespace tool {

/// The verdict, and how each check ended.
[[nodiscard]] std::string shownDiagnosis(const Diagnosis& diagnosis);
[[nodiscard]] nlohmann::ordered_json shownPresence(const PresenceCheck& presence);
[[nodiscard]] nlohmann::ordered_json shownJobs(const Inventory& inventory, DeviceOrder& devices);
[[nodiscard]] nlohmann::ordered_json shownDevices(const DeviceList& list, DeviceOrder& devices);
/// The root's directory, its log and its disk.
[[nodiscard]] nlohmann::ordered_json shownRoot(const Inventory& inventory);
[[nodiscard]] nlohmann::ordered_json shownTrial(const TrialResult& trial, DeviceOrder& devices);
/// A number or a code where it may be shown, null for nothing, else kPrivate.
[[nodiscard]] nlohmann::ordered_json shownNumber(std::uint64_t number);
[[nodiscard]] nlohmann::ordered_json shownCode(std::optional<std::int64_t> code);
/// Null for none.
[[nodiscard]] nlohmann::ordered_json shownVersionOrNull(const std::string& version);

}  // namespace tool
