// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/HidrawSource.h"

#include <charconv>
#include <filesystem>

#include "platform/foundation/PrintableText.h"
#include "router/hidraw/HidFacts.h"
#include "router/hidraw/HidName.h"
#include "router/hidraw/HidrawDevice.h"
#include "router/hidraw/RememberedTree.h"
#include "router/hidraw/VerifiedNode.h"

namespace router {

struct HidrawSource::Found {
  SystemDevice hidraw;
  SystemDevice hid;  // above it
  HidName name;
};

namespace {

/// A text of the device's own.
std::string textOf(const SystemDevice& hid, const std::string& property) {
  const auto found = hid.properties.find(property);
  if (found == hid.properties.end()) return {};
  return platform::printableLine(found->second, RouterLimits::kNameCharacters);
}

std::optional<std::uint32_t> interfaceOf(const DeviceTree& tree, const SystemDevice& hid) {
  const auto interface = tree.ancestorOf(hid.path, "usb", "usb_interface");
  const auto text = interface ? tree.attribute(interface->path, "bInterfaceNumber") : std::nullopt;
  if (!text) return std::nullopt;
  std::uint32_t number = 0;
  constexpr int kHexadecimal = 16;
  const auto parsed =
      std::from_chars(text->data(), text->data() + text->size(), number, kHexadecimal);
  if (parsed.ec != std::errc()) return std::nullopt;
  return number;
}

/// Spares looking at the HID device above each node: its name is a part of the node's path.
bool isSurelyAnother(const SystemDevice& hidraw, std::uint64_t registryEntryID) {
  const std::filesystem::path path(hidraw.path);
  const auto name = HidName::parse(path.parent_path().parent_path().filename().string());
  return name && name->registryEntryID() != registryEntryID;
}

}  // namespace

/// Whether udev has done all that it does for the device.
bool HidrawSource::isReady(const SystemDevice& hidraw) const {
  return hidraw.age >= udevTime_ || system_.nodes->mayRead(hidraw.node);
}

/// Nothing, with the reason, if it cannot be listed; without a reason, if it is being removed.
std::optional<HidrawSource::Found> HidrawSource::identify(SystemDevice hidraw,
                                                          std::string* problem) const {
  auto hid = system_.tree->ancestorOf(hidraw.path, "hid", "");
  if (!hid) return std::nullopt;
  const auto name = HidName::parse(hid->name);
  if (!name) {
    *problem = hidraw.name + ": the HID device above it has the name \"" +
               platform::printableLine(hid->name, RouterLimits::kNameCharacters) +
               "\", of which no registry entry ID can be made; it is not listed";
    return std::nullopt;
  }
  return Found{std::move(hidraw), std::move(*hid), *name};
}

DeviceDescription HidrawSource::describe(const Found& found) const {
  DeviceDescription description;
  description.registryEntryID = found.name.registryEntryID();
  description.name = textOf(found.hid, "HID_NAME");
  description.bus = found.name.bus;
  description.vendor = found.name.vendor;
  description.product = found.name.product;
  description.source = found.hidraw.name;
  description.physicalPath = textOf(found.hid, "HID_PHYS");
  description.unique = textOf(found.hid, "HID_UNIQ");
  description.interface = interfaceOf(*system_.tree, found.hid);
  return description;
}

std::vector<DeviceDescription> HidrawSource::list(std::vector<std::string>* returnProblems) const
    try {
  std::vector<DeviceDescription> devices;
  for (SystemDevice& hidraw : system_.tree->initialized("hidraw")) {
    if (!isReady(hidraw)) continue;
    std::string problem;
    const auto found = identify(std::move(hidraw), &problem);
    if (found && system_.tree->reportDescriptor(found->hid.path)) {
      devices.push_back(describe(*found));
      static_cast<void>(decidedClassOf(found->hidraw, &problem));
    } else if (found) {
      problem = found->hidraw.name + ": its report descriptor cannot be read; it is not listed";
    }
    if (!problem.empty()) returnProblems->push_back(std::move(problem));
  }
  return devices;
} catch (const DeviceError& error) {
  returnProblems->push_back(error.what());
  return {};
}

std::optional<HidrawSource::Found> HidrawSource::find(std::uint64_t registryEntryID) const {
  for (SystemDevice& hidraw : system_.tree->initialized("hidraw")) {
    if (isSurelyAnother(hidraw, registryEntryID)) continue;
    std::string problem;
    auto found = identify(std::move(hidraw), &problem);
    if (found && found->name.registryEntryID() == registryEntryID) return found;
  }
  return std::nullopt;
}

std::optional<DeviceFacts> HidrawSource::factsOf(std::uint64_t registryEntryID) const {
  const auto found = find(registryEntryID);
  return found ? router::factsOf(*system_.tree, found->hid, found->hidraw) : std::nullopt;
}

std::optional<std::vector<std::uint8_t>> HidrawSource::reportDescriptorOf(
    std::uint64_t registryEntryID) const {
  const auto found = find(registryEntryID);
  return found ? system_.tree->reportDescriptor(found->hid.path) : std::nullopt;
}

std::unique_ptr<DeviceSource> HidrawSource::remembering() const {
  return std::make_unique<HidrawSource>(
      HidrawSystem{std::make_shared<const RememberedTree>(system_.tree), system_.nodes}, udevTime_);
}

std::unique_ptr<OpenDevice> HidrawSource::open(std::uint64_t registryEntryID) const try {
  auto found = find(registryEntryID);
  if (!found) return nullptr;
  platform::FileDescriptor node = openVerified(system_, found->hidraw, found->hid);
  auto descriptor = system_.nodes->reportDescriptor(node.get());
  // Whoever decided that the device may be read knows it by this one.
  const auto known = system_.tree->reportDescriptor(found->hid.path);
  if (!known) throw noLongerThere(found->hidraw.node);
  if (*known != descriptor)
    throw DeviceError(found->hidraw.node + " has a report descriptor other than its device's");
  return std::make_unique<HidrawDevice>(system_, std::move(found->hid), std::move(node),
                                        std::move(descriptor));
} catch (const std::system_error& error) {
  throw DeviceError(std::string("its report descriptor cannot be read: ") + error.code().message(),
                    error.code());
}

}  // namespace router
