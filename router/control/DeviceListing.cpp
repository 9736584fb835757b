// SPDX-License-Identifier: Apache-2.0

#include "router/control/DeviceListing.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/PrintableText.h"
#include "router-client/WLHIDDeviceDirectoryProtocols.h"
#include "router/DictionaryReading.h"

namespace router {
namespace {

using platform::NSArray;
using platform::NSDictionary;
using platform::NSNumber;
using platform::NSObject;
using platform::objectCast;
using platform::str;
using Entries = std::vector<NSDictionary::Entry>;

constexpr std::size_t kUnknown = static_cast<std::size_t>(DevicePermission::Unknown);
static_assert(kUnknown + 1 == WLHIDDevicePermissions.size());
constexpr std::string_view kOrdinary = "ordinary";
constexpr std::string_view kSensitive = "sensitive";
constexpr std::size_t kMaximumCharacters = 1000;

void add(Entries& entries, std::string_view key, std::uint64_t number) {
  entries.emplace_back(str(key), NSNumber::numberWithUnsignedLongLong(number));
}
void add(Entries& entries, std::string_view key, std::string_view text) {
  entries.emplace_back(str(key), str(platform::printableLine(text, kMaximumCharacters)));
}

void addClass(Entries& entries, const ListedDevice& listed) {
  if (!listed.deviceClass) return;
  add(entries, "Class", *listed.deviceClass == DeviceClass::Ordinary ? kOrdinary : kSensitive);
  add(entries, "Reason", listed.reason);
  std::vector<std::shared_ptr<NSObject>> reports;
  for (const std::uint8_t id : listed.ordinaryReports)
    reports.push_back(NSNumber::numberWithUnsignedLongLong(id));
  entries.emplace_back(str("OrdinaryReports"), NSArray::arrayWithObjects(std::move(reports)));
}

void addCollections(Entries& entries, const std::vector<Usage>& collections) {
  if (collections.empty()) return;
  std::vector<std::shared_ptr<NSObject>> list;
  for (const Usage& each : collections) {
    Entries usage;
    add(usage, "UsagePage", each.page);
    add(usage, "Usage", each.id);
    list.push_back(NSDictionary::dictionaryWithEntries(std::move(usage)));
  }
  entries.emplace_back(str("Collections"), NSArray::arrayWithObjects(std::move(list)));
}

void addDescription(Entries& entries, const DeviceDescription& device) {
  add(entries, "Device", device.registryEntryID);
  add(entries, "Name", device.name);
  add(entries, "Bus", device.bus);
  add(entries, "Vendor", device.vendor);
  add(entries, "Product", device.product);
  add(entries, "Source", device.source);
  if (!device.physicalPath.empty()) add(entries, "Path", device.physicalPath);
  if (!device.unique.empty()) add(entries, "Unique", device.unique);
  if (device.interface) add(entries, "Interface", *device.interface);
}

DevicePermission permissionNamed(std::string_view name) {
  std::size_t index = 0;
  while (index < kUnknown && WLHIDDevicePermissions[index] != name) ++index;
  return static_cast<DevicePermission>(index);
}

std::set<std::uint8_t> reportsIn(const NSDictionary& dictionary) {
  std::set<std::uint8_t> reports;
  const auto array = objectCast<NSArray>(dictionary.objectForKey("OrdinaryReports"));
  if (array == nullptr) return reports;
  array->enumerateObjects([&](const std::shared_ptr<NSObject>& member) {
    const auto number = objectCast<NSNumber>(member);
    if (number != nullptr && number->unsignedLongLongValue() <= 0xff)
      reports.insert(static_cast<std::uint8_t>(number->unsignedLongLongValue()));
  });
  return reports;
}

/// A class that is none of the two counts as the worse one.
std::optional<DeviceClass> classIn(const NSDictionary& dictionary) {
  const std::string name = textIn(dictionary, "Class");
  if (name.empty()) return std::nullopt;
  return name == kOrdinary ? DeviceClass::Ordinary : DeviceClass::Sensitive;
}

std::uint32_t smallNumberIn(const NSDictionary& dictionary, std::string_view key) {
  return static_cast<std::uint32_t>(numberIn(dictionary, key).value_or(0));
}

std::vector<Usage> collectionsIn(const NSDictionary& dictionary) {
  std::vector<Usage> collections;
  const auto list = objectCast<NSArray>(dictionary.objectForKey("Collections"));
  if (list == nullptr) return collections;
  list->enumerateObjects([&](const std::shared_ptr<NSObject>& member) {
    if (const auto each = objectCast<NSDictionary>(member))
      collections.push_back({smallNumberIn(*each, "UsagePage"), smallNumberIn(*each, "Usage")});
  });
  return collections;
}

ListedDevice deviceIn(const NSDictionary& dictionary) {
  ListedDevice listed;
  listed.device.registryEntryID = numberIn(dictionary, "Device").value_or(0);
  listed.device.name = textIn(dictionary, "Name");
  listed.device.bus = smallNumberIn(dictionary, "Bus");
  listed.device.vendor = smallNumberIn(dictionary, "Vendor");
  listed.device.product = smallNumberIn(dictionary, "Product");
  listed.device.source = textIn(dictionary, "Source");
  listed.device.physicalPath = textIn(dictionary, "Path");
  listed.device.unique = textIn(dictionary, "Unique");
  if (numberIn(dictionary, "Interface"))
    listed.device.interface = smallNumberIn(dictionary, "Interface");
  listed.deviceClass = classIn(dictionary);
  listed.reason = textIn(dictionary, "Reason");
  listed.ordinaryReports = reportsIn(dictionary);
  listed.collections = collectionsIn(dictionary);
  listed.permission = permissionNamed(textIn(dictionary, "Permission"));
  listed.explanation = textIn(dictionary, "Explanation");
  return listed;
}

}  // namespace

const char* nameOf(DevicePermission permission) {
  return WLHIDDevicePermissions[std::min(static_cast<std::size_t>(permission), kUnknown)];
}

std::shared_ptr<NSDictionary> dictionaryOfDevice(const ListedDevice& listed) {
  Entries entries;
  addDescription(entries, listed.device);
  addClass(entries, listed);
  addCollections(entries, listed.collections);
  add(entries, "Permission", std::string_view(nameOf(listed.permission)));
  add(entries, "Explanation", listed.explanation);
  return NSDictionary::dictionaryWithEntries(std::move(entries));
}

std::shared_ptr<NSDictionary> dictionaryOf(const std::vector<ListedDevice>& devices) {
  std::vector<std::shared_ptr<NSObject>> list;
  list.reserve(devices.size());
  for (const ListedDevice& each : devices) list.push_back(dictionaryOfDevice(each));
  return NSDictionary::dictionaryWithEntries(
      {{str("Devices"), NSArray::arrayWithObjects(std::move(list))}});
}

std::vector<ListedDevice> listedDevicesIn(const NSDictionary& dictionary) {
  std::vector<ListedDevice> devices;
  const auto list = objectCast<NSArray>(dictionary.objectForKey("Devices"));
  if (list == nullptr) return devices;
  list->enumerateObjects([&](const std::shared_ptr<NSObject>& member) {
    if (const auto each = objectCast<NSDictionary>(member)) devices.push_back(deviceIn(*each));
  });
  return devices;
}

}  // namespace router
