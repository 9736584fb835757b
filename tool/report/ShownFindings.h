// SPDX-License-Identifier: Apache-2.0

// What a report without input shows of a system root: known keys whose values are truth values,
// words of this program, and values that ShownLines.h allows. Texts, paths, names, users and
// registry entry IDs are not shown.
//
// Threading: one thread.
// Order: devices are numbered as they appear.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "tool/findings/Diagnosis.h"
#include "tool/findings/Inventory.h"
#include "tool/findings/PresenceCheck.h"
#include "tool/report/ShownLines.h"
#include "tool/routing/Trial.h"

namespace tool {

/// A check's name; of a job's only the router's and the job daemon's label.
[[nodiscard]] std::string shownName(const Check& check);
/// The verdict, the result of each check, and of one that failed what is wrong and what helps.
[[nodiscard]] std::string shownDiagnosis(const Diagnosis& diagnosis);
[[nodiscard]] nlohmann::ordered_json shownPresence(const PresenceCheck& presence);
[[nodiscard]] nlohmann::ordered_json shownJobs(const Inventory& inventory, DeviceOrder& devices);
[[nodiscard]] nlohmann::ordered_json shownDevices(const DeviceList& list, DeviceOrder& devices);
/// The root's directory, its log and its disk.
[[nodiscard]] nlohmann::ordered_json shownRoot(const Inventory& inventory);
[[nodiscard]] nlohmann::ordered_json shownTrial(const TrialResult& trial, DeviceOrder& devices);
/// A number or code if it may be shown, null for nothing, otherwise kPrivate.
[[nodiscard]] nlohmann::ordered_json shownNumber(std::uint64_t number);
[[nodiscard]] nlohmann::ordered_json shownCode(std::optional<std::int64_t> code);
/// Null if empty.
[[nodiscard]] nlohmann::ordered_json shownVersionOrNull(const std::string& version);

}  // namespace tool
