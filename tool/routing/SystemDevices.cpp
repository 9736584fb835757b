// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/SystemDevices.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "platform/foundation/Format.h"
#include "platform/foundation/PrintableText.h"
#include "tool/command/Command.h"
#include "tool/command/Numbers.h"
#include "tool/findings/InventoryJson.h"
#include "tool/findings/RouterService.h"
#include "tool/routing/DeviceJson.h"
#include "tool/routing/DeviceNames.h"
#include "tool/terminal/Table.h"

namespace tool {

namespace {

using router::DeviceClass;
using router::ListedDevice;

std::string classText(const ListedDevice& listed) {
  if (!listed.deviceClass) return "unknown";
  return *listed.deviceClass == DeviceClass::Ordinary ? "ordinary" : "sensitive";
}

std::string asJson(const std::vector<ListedDevice>& devices) {
  auto list = nlohmann::ordered_json::array();
  for (const ListedDevice& each : devices) {
    auto object = wholeJsonOf(each.device);
    object["class"] = classText(each);
    object["reason"] = each.reason;
    object["ordinaryReports"] = each.ordinaryReports;
    object["permission"] = router::nameOf(each.permission);
    object["explanation"] = each.explanation;
    list.push_back(std::move(object));
  }
  return dumped(list);
}

std::string reasonText(const ListedDevice& listed) {
  return classText(listed) + ": " + platform::printableLine(listed.reason);
}

std::string asTable(const std::vector<ListedDevice>& devices, bool withReasons) {
  constexpr std::size_t kWidestName = 40;
  Table table({"REGISTRY ENTRY ID", "NAME", "BUS:VENDOR:PRODUCT", "CLASS", "MAY YOU ROUTE IT?"});
  for (const ListedDevice& each : devices) {
    const auto& device = each.device;
    table.add(
        {hexadecimal(device.registryEntryID), platform::printableLine(device.name, kWidestName),
         platform::stringWithFormat("%04x:%04x:%04x", device.bus & 0xffff, device.vendor & 0xffff,
                                    device.product & 0xffff),
         classText(each), oneLine(each.explanation)},
        withReasons ? reasonText(each) : std::string());
  }
  return table.text();
}

/// Nothing, after a complaint, without an answer.
std::optional<std::vector<ListedDevice>> askedDevices() try {
  return RouterService().devices();
} catch (const Failure& failure) {
  complain(failure.what());
  return std::nullopt;
}

}  // namespace

bool printSystemDevices(bool json, bool withReasons) {
  const auto devices = askedDevices();
  if (!devices) return false;
  if (json)
    print(asJson(*devices));
  else
    print(devices->empty() ? "No HID devices are connected.\n" : asTable(*devices, withReasons));
  return true;
}

ListedDevice systemDevice(const std::string& text) {
  const DeviceReference reference = DeviceReference::parse(text);
  std::vector<ListedDevice> named;
  std::vector<ListedDevice> numbered;
  for (ListedDevice& each : RouterService().devices()) {
    if (reference.name == each.device.name)
      named.push_back(std::move(each));
    else if (reference.registryEntryID == each.device.registryEntryID)
      numbered.push_back(std::move(each));
  }
  if (named.size() > 1) {
    throw Failure(std::to_string(named.size()) + " devices are called \"" + text +
                  "\"; use the registry entry ID (wlhid devices lists them)");
  }
  if (!named.empty()) return named.front();
  if (!numbered.empty()) return numbered.front();
  throw Failure("there is no device \"" + text + "\" (wlhid devices lists them)");
}

}  // namespace tool
