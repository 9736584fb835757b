#include "tool/DeviceNames.h"

#include <vector>

#include "platform/services/SystemRoot.h"
#include "router/Devices.h"
#include "tool/Command.h"
#include "tool/Numbers.h"

namespace tool {

std::uint64_t registryEntryIDOf(const std::string& text) {
  if (const auto number = parseNumber(text)) return *number;
  std::vector<std::uint64_t> found;
  for (const auto& device : router::listDevices(platform::SystemRoot::current(), nullptr)) {
    if (device.name == text) found.push_back(device.registryEntryID);
  }
  if (found.empty())
    throw Failure("no device is called \"" + text + "\" (wlhid devices lists them)");
  if (found.size() > 1) {
    throw Failure(std::to_string(found.size()) + " devices are called \"" + text +
                  "\"; use the registry entry ID");
  }
  return found.front();
}

}  // namespace tool
