// SPDX-License-Identifier: Apache-2.0

#include "input/DeviceRecords.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSString.h"
#include "router-client/WLHIDDeviceDirectoryProtocols.h"

namespace wlhid {

namespace {

using platform::NSArray;
using platform::NSDictionary;
using platform::NSNumber;
using platform::NSObject;
using platform::objectCast;
using platform::str;

constexpr std::size_t kUnknown = static_cast<std::size_t>(Permission::Unknown);
static_assert(kUnknown + 1 == WLHIDDevicePermissions.size());

std::optional<std::uint64_t> numberIn(const NSDictionary& dictionary, std::string_view key) {
  const auto number = objectCast<NSNumber>(dictionary.objectForKey(key));
  return number == nullptr ? std::nullopt : std::optional(number->unsignedLongLongValue());
}

std::uint32_t smallNumberIn(const NSDictionary& dictionary, std::string_view key) {
  return static_cast<std::uint32_t>(numberIn(dictionary, key).value_or(0));
}

std::string textIn(const NSDictionary& dictionary, std::string_view key) {
  const auto text = objectCast<platform::NSString>(dictionary.objectForKey(key));
  return text == nullptr ? std::string() : text->UTF8String();
}

/// Calls `body` with each member of the array that is a `T`.
template <class T, class Body>
void eachIn(const NSDictionary& dictionary, std::string_view key, const Body& body) {
  const auto array = objectCast<NSArray>(dictionary.objectForKey(key));
  if (array == nullptr) return;
  array->enumerateObjects([&](const std::shared_ptr<NSObject>& member) {
    if (const auto object = objectCast<T>(member)) body(*object);
  });
}

DeviceClass classIn(const NSDictionary& dictionary) {
  const std::string name = textIn(dictionary, "Class");
  if (name.empty()) return DeviceClass::None;
  return name == nameOf(DeviceClass::Ordinary) ? DeviceClass::Ordinary : DeviceClass::Sensitive;
}

Permission permissionIn(const NSDictionary& dictionary) {
  const std::string name = textIn(dictionary, "Permission");
  std::size_t index = 0;
  while (index < kUnknown && WLHIDDevicePermissions[index] != name) ++index;
  return static_cast<Permission>(index);
}

template <class Number>
void add(std::vector<NSDictionary::Entry>& entries, std::string_view key,
         const std::optional<Number>& number) {
  if (number) entries.emplace_back(str(key), NSNumber::numberWithUnsignedLongLong(*number));
}

}  // namespace

const char* nameOf(Permission permission) {
  return WLHIDDevicePermissions[std::min(static_cast<std::size_t>(permission), kUnknown)];
}

const char* nameOf(DeviceClass deviceClass) {
  if (deviceClass == DeviceClass::None) return "none";
  return deviceClass == DeviceClass::Ordinary ? "ordinary" : "sensitive";
}

Device deviceIn(const NSDictionary& dictionary) {
  Device device;
  device.id = numberIn(dictionary, "Device").value_or(0);
  device.name = textIn(dictionary, "Name");
  device.bus = smallNumberIn(dictionary, "Bus");
  device.vendor = smallNumberIn(dictionary, "Vendor");
  device.product = smallNumberIn(dictionary, "Product");
  device.source = textIn(dictionary, "Source");
  device.path = textIn(dictionary, "Path");
  device.serial = textIn(dictionary, "Unique");
  if (numberIn(dictionary, "Interface")) device.interface = smallNumberIn(dictionary, "Interface");
  eachIn<NSDictionary>(dictionary, "Collections", [&](const NSDictionary& each) {
    device.collections.push_back({smallNumberIn(each, "UsagePage"), smallNumberIn(each, "Usage")});
  });
  device.deviceClass = classIn(dictionary);
  device.reason = textIn(dictionary, "Reason");
  eachIn<NSNumber>(dictionary, "OrdinaryReports", [&](const NSNumber& each) {
    device.ordinaryReports.push_back(static_cast<std::uint32_t>(each.unsignedLongLongValue()));
  });
  device.permission = permissionIn(dictionary);
  device.explanation = textIn(dictionary, "Explanation");
  return device;
}

std::vector<Device> devicesIn(const NSArray& array) {
  std::vector<Device> devices;
  array.enumerateObjects([&](const std::shared_ptr<NSObject>& member) {
    if (const auto each = objectCast<NSDictionary>(member)) devices.push_back(deviceIn(*each));
  });
  return devices;
}

std::shared_ptr<NSArray> arrayOf(const std::vector<Criterion>& criteria) {
  if (criteria.empty()) return nullptr;
  std::vector<std::shared_ptr<NSObject>> list;
  for (const Criterion& each : criteria) {
    std::vector<NSDictionary::Entry> entries;
    add(entries, "Device", each.id);
    add(entries, "Vendor", each.vendor);
    add(entries, "Product", each.product);
    add(entries, "UsagePage", each.usagePage);
    add(entries, "Usage", each.usage);
    list.push_back(NSDictionary::dictionaryWithEntries(std::move(entries)));
  }
  return NSArray::arrayWithObjects(std::move(list));
}

}  // namespace wlhid
