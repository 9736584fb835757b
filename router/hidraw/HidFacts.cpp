// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/HidFacts.h"

#include <algorithm>

#include "platform/foundation/PrintableText.h"

namespace router {

namespace {

std::string property(const SystemDevice& device, const std::string& name) {
  const auto found = device.properties.find(name);
  return found == device.properties.end() ? std::string() : found->second;
}

bool isSet(const SystemDevice& device, const std::string& name) {
  const std::string value = property(device, name);
  return !value.empty() && value != "0";
}

bool isKeyboardNode(const SystemDevice& input) {
  const bool isUnknown = input.number != 0 && !input.isInitialized;
  return isUnknown || isSet(input, "ID_INPUT_KEYBOARD") || isSet(input, "ID_INPUT_KEY");
}

bool mayBe(const DeviceTree& tree, const SystemDevice& device, const std::string& attribute,
           std::string_view value) {
  const auto text = tree.attribute(device.path, attribute);
  return !text || *text == value;
}

bool isBootKeyboard(const DeviceTree& tree, const SystemDevice& interface) {
  return mayBe(tree, interface, "bInterfaceClass", "03") &&
         mayBe(tree, interface, "bInterfaceSubClass", "01") &&
         mayBe(tree, interface, "bInterfaceProtocol", "01");
}

/// A HID interface that no driver has bound says nothing of what it is.
bool isUnknownInterface(const DeviceTree& tree, const SystemDevice& interface) {
  return mayBe(tree, interface, "bInterfaceClass", "03") &&
         tree.below(interface.path, "hid").empty();
}

bool hasKeyboardNode(const DeviceTree& tree, const std::string& path) {
  return std::ranges::any_of(tree.below(path, "input"), isKeyboardNode);
}

bool isOnAKeyboard(const DeviceTree& tree, const SystemDevice& usbDevice, const SystemDevice& hid) {
  return std::ranges::any_of(tree.below(usbDevice.path, "usb"), [&](const SystemDevice& each) {
    if (each.type != "usb_interface" || isBelow(hid.path, each.path)) return false;
    return isBootKeyboard(tree, each) || isUnknownInterface(tree, each);
  });
}

bool hasKeyboardNodeElsewhere(const DeviceTree& tree, const std::string& physical,
                              const SystemDevice& hid) {
  return std::ranges::any_of(tree.below(physical, "input"), [&](const SystemDevice& each) {
    return !isBelow(each.path, hid.path) && isKeyboardNode(each);
  });
}

/// Whether two devices that a program feeds to the kernel (as Bluetooth's does) may be parts of
/// one: the same serial number, or none that tells them apart and the same model.
bool mayBeOneDevice(const SystemDevice& one, const SystemDevice& other) {
  const std::string unique = property(one, "HID_UNIQ");
  const std::string otherUnique = property(other, "HID_UNIQ");
  if (!unique.empty() && !otherUnique.empty()) return unique == otherUnique;
  const auto model = [](const SystemDevice& device) {
    return device.name.substr(0, device.name.find('.'));
  };
  return model(one) == model(other);
}

bool hasFedKeyboardBeside(const DeviceTree& tree, const SystemDevice& parent,
                          const SystemDevice& hid) {
  return std::ranges::any_of(tree.below(parent.path, "hid"), [&](const SystemDevice& each) {
    return each.path != hid.path && mayBeOneDevice(each, hid) && hasKeyboardNode(tree, each.path);
  });
}

bool isBesideKeyboard(const DeviceTree& tree, const SystemDevice& hid) {
  if (const auto usb = tree.ancestorOf(hid.path, "usb", "usb_device")) {
    return isOnAKeyboard(tree, *usb, hid) || hasKeyboardNodeElsewhere(tree, usb->path, hid);
  }
  const auto parent = tree.parentOf(hid.path);
  if (!parent) return true;
  // What programs feed has no device of its own above it: they all have the same parent.
  if (parent->path.starts_with("/sys/devices/virtual/"))
    return hasFedKeyboardBeside(tree, *parent, hid);
  return hasKeyboardNodeElsewhere(tree, parent->path, hid);
}

}  // namespace

bool isBelow(const std::string& path, const std::string& above) {
  return path.size() > above.size() && path.starts_with(above) && path[above.size()] == '/';
}

std::optional<DeviceFacts> factsOf(const DeviceTree& tree, const SystemDevice& hid,
                                   const SystemDevice& hidraw) {
  auto descriptor = tree.reportDescriptor(hid.path);
  if (!descriptor) return std::nullopt;
  DeviceFacts facts;
  facts.reportDescriptor = std::move(*descriptor);
  const auto interface = tree.ancestorOf(hid.path, "usb", "usb_interface");
  facts.isBootKeyboard = interface && isBootKeyboard(tree, *interface);
  facts.hasKeyboardNode = hasKeyboardNode(tree, hid.path);
  facts.isBesideKeyboard = isBesideKeyboard(tree, hid);
  std::string problem;
  facts.decided = decidedClassOf(hidraw, &problem);
  return facts;
}

std::optional<DeviceClass> decidedClassOf(const SystemDevice& hidraw, std::string* returnProblem) {
  const std::string value = property(hidraw, "WLHID_CLASS");
  if (value == "ordinary") return DeviceClass::Ordinary;
  if (value == "sensitive") return DeviceClass::Sensitive;
  if (!value.empty()) {
    *returnProblem = hidraw.name + ": the udev property WLHID_CLASS is \"" +
                     platform::printableLine(value, 40) +
                     "\", which is neither \"ordinary\" nor \"sensitive\"; it has no effect";
  }
  return std::nullopt;
}

}  // namespace router
