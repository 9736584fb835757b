// SPDX-License-Identifier: Apache-2.0

#include "router/hidraw/ExclusiveInput.h"

#include <string_view>

#include "router/hidraw/VerifiedNode.h"

namespace router {

namespace {

/// Taking the event node also silences the older interfaces to the same input (mice, joysticks).
bool isEventNode(const SystemDevice& input) {
  return input.name.starts_with("event") && !input.node.empty();
}

/// A receiver's HID device has those of its paired devices below it, with input of their own.
bool isOwn(const DeviceTree& tree, const SystemDevice& input, const SystemDevice& hid) {
  const auto nearest = tree.ancestorOf(input.path, "hid", "");
  return nearest && nearest->path == hid.path;
}

void grab(const DeviceNodes& nodes, int descriptor, const std::string& node) try {
  nodes.grab(descriptor);
} catch (const std::system_error& error) {
  const bool isTaken = error.code() == std::errc::device_or_resource_busy;
  throw DeviceError(node + " cannot be taken: " +
                        (isTaken ? "another program has taken it" : error.code().message()),
                    error.code());
}

}  // namespace

ExclusiveInput::ExclusiveInput(const HidrawSystem& system, const SystemDevice& hid) {
  for (const SystemDevice& input : system.tree->below(hid.path, "input")) {
    if (!isEventNode(input) || !isOwn(*system.tree, input, hid)) continue;
    platform::FileDescriptor node = openVerified(system, input, hid);
    grab(*system.nodes, node.get(), input.node);
    nodes_.push_back(std::move(node));
  }
}

}  // namespace router
