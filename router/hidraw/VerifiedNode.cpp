// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/VerifiedNode.h"

#include <cerrno>

namespace router {

namespace {

platform::FileDescriptor openNode(const DeviceNodes& nodes, const std::string& node) try {
  return nodes.open(node);
} catch (const std::system_error& error) {
  const int code = error.code().value();
  if (code == ENOENT || code == ENODEV || code == ENXIO) throw noLongerThere(node);
  std::string text = node + " cannot be opened: " + error.code().message();
  if (code == EACCES || code == EPERM) {
    text += "; a udev rule has to give the router's user the right to read it";
  }
  throw DeviceError(text, error.code());
}

bool leadsTo(const DeviceTree& tree, dev_t number, const SystemDevice& device,
             const SystemDevice& hid) {
  const auto found = tree.withNumber(number);
  if (!found || found->subsystem != device.subsystem) return false;
  const auto above = tree.ancestorOf(found->path, "hid", "");
  return above && above->name == hid.name;
}

}  // namespace

platform::FileDescriptor openVerified(const HidrawSystem& system, const SystemDevice& device,
                                      const SystemDevice& hid) {
  platform::FileDescriptor node = openNode(*system.nodes, device.node);
  const auto number = system.nodes->numberOf(node.get());
  if (!number) throw DeviceError(device.node + " is not a device node");
  if (*number != device.number || !leadsTo(*system.tree, *number, device, hid)) {
    throw DeviceError(device.node + " is the node of another device; it has just been replaced");
  }
  return node;
}

DeviceError noLongerThere(const std::string& node) {
  return DeviceError(node + " is no longer there", std::make_error_code(std::errc::no_such_device));
}

}  // namespace router
