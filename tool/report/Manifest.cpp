// SPDX-License-Identifier: Apache-2.0

#include "tool/report/Manifest.h"

#include <nlohmann/json.hpp>

#include "tool/findings/InventoryJson.h"
#include "tool/report/ShownFindings.h"

namespace tool {

namespace {

using nlohmann::ordered_json;

constexpr int kManifestFormat = 2;

ordered_json filesJson(const ReportResult& result) {
  ordered_json files = ordered_json::array();
  for (const ReportPart& part : result.parts) {
    files.push_back({{"name", part.name},
                     {"bytes", part.bytes},
                     {"description", part.description},
                     {"category", part.category}});
  }
  return files;
}

ordered_json missingJson(const ReportResult& result, bool whole) {
  ordered_json missing = ordered_json::array();
  for (const MissingPart& part : result.missing) {
    missing.push_back(whole
                          ? ordered_json{{"part", part.part}, {"problem", part.problem}}
                          : ordered_json{{"part", part.shownPart}, {"code", shownCode(part.code)}});
  }
  return missing;
}

/// Null if there is none.
ordered_json versionsJson(const Inventory& inventory, bool whole) {
  const auto version = [whole](const std::string& text) {
    return whole && !text.empty() ? ordered_json(text) : shownVersionOrNull(text);
  };
  const RouterVersions& versions = inventory.presence.versions;
  return {{"bundleCopy", version(versions.bundle.version)},
          {"installed", versions.installed ? version(versions.installed->version) : ordered_json()},
          {"running", inventory.router ? version(inventory.router->version) : ordered_json()}};
}

}  // namespace

std::string manifestOf(const ReportRequest& request, const ReportResult& result,
                       const ReportOrigin& origin, const Inventory& inventory,
                       const Diagnosis& diagnosis) {
  const bool whole = request.withInput;
  const bool showsRoot = whole || request.root.isSystem();
  return dumped({{"format", kManifestFormat},
                 {"created", origin.time},
                 {"tool", origin.tool},
                 {"system",
                  {{"kernel", origin.kernel},
                   {"machine", origin.machine},
                   {"distribution", origin.distribution}}},
                 {"systemRoot", showsRoot ? request.root.path().string() : std::string(kPrivate)},
                 {"withInput", whole},
                 {"verdict", diagnosis.verdict},
                 {"versions", versionsJson(inventory, whole)},
                 {"files", filesJson(result)},
                 {"missing", missingJson(result, whole)}});
}

}  // namespace tool
