// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/DeviceNames.h"

#include <functional>
#include <vector>

#include "platform/services/SystemRoot.h"
#include "router/Devices.h"
#include "tool/command/Command.h"
#include "tool/command/Numbers.h"

namespace tool {

namespace {

constexpr std::string_view kIDPrefix = "id:";
constexpr std::string_view kNamePrefix = "name:";

using Configured = std::vector<router::ConfiguredDevice>;

/// The only configuration that `fits`; Failure if there are several.
std::optional<std::string> onlyConfiguration(
    const Configured& all, const std::string& text,
    const std::function<bool(const router::ConfiguredDevice&)>& fits) {
  std::vector<std::string> found;
  for (const auto& each : all) {
    if (fits(each)) found.push_back(each.configuration);
  }
  if (found.size() > 1) {
    throw Failure(std::to_string(found.size()) + " devices are called \"" + text +
                  "\"; use the registry entry ID (wlhid devices lists them)");
  }
  return found.empty() ? std::nullopt : std::optional(found.front());
}

}  // namespace

DeviceReference DeviceReference::parse(const std::string& text) {
  if (text.starts_with(kNamePrefix)) return {text.substr(kNamePrefix.size()), std::nullopt};
  if (!text.starts_with(kIDPrefix)) return {text, parseNumber(text)};
  const auto number = parseNumber(text.substr(kIDPrefix.size()));
  if (!number) throw UsageFailure("\"" + text + "\": no number after id:");
  return {std::nullopt, number};
}

std::uint64_t registryEntryIDOf(const std::string& text) {
  const DeviceReference reference = DeviceReference::parse(text);
  std::vector<std::uint64_t> found;
  if (reference.name) {
    for (const auto& device : router::listDevices(platform::SystemRoot::current(), nullptr)) {
      if (device.name == *reference.name) found.push_back(device.registryEntryID);
    }
  }
  if (found.size() > 1) {
    throw Failure(std::to_string(found.size()) + " devices are called \"" + text +
                  "\"; use the registry entry ID (wlhid devices lists them)");
  }
  if (!found.empty()) return found.front();
  if (reference.registryEntryID) return *reference.registryEntryID;
  throw Failure("no device is called \"" + *reference.name + "\" (wlhid devices lists them)");
}

std::string configurationOf(const std::string& text) {
  const DeviceReference reference = DeviceReference::parse(text);
  const auto all = router::configuredReplayDevices(platform::SystemRoot::current());
  std::optional<std::string> found;
  if (reference.name) {
    found = onlyConfiguration(all, text, [&](const router::ConfiguredDevice& each) {
      return !each.description.name.empty() && each.description.name == *reference.name;
    });
    if (!found) {
      found = onlyConfiguration(all, text, [&](const router::ConfiguredDevice& each) {
        return each.configuration == *reference.name;
      });
    }
  }
  if (!found && reference.registryEntryID) {
    found = onlyConfiguration(all, text, [&](const router::ConfiguredDevice& each) {
      return each.device && each.description.registryEntryID == *reference.registryEntryID;
    });
  }
  if (!found)
    throw Failure("there is no recorded device \"" + text + "\" (wlhid devices lists them)");
  return *found;
}

}  // namespace tool
