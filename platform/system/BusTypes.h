// SPDX-License-Identifier: Apache-2.0

// Owners of sd-bus objects.
//
// Threading: the thread of the connection that the object belongs to.
// Ownership: each owns one reference.
#pragma once

#include <memory>

// As in sd-bus.h, which only the sources include.
struct sd_bus;
struct sd_bus_message;
struct sd_bus_slot;

namespace platform::system {

struct BusObjectRelease {
  void operator()(sd_bus* connection) const noexcept;  ///< closes it too; what is unsent is lost
  void operator()(sd_bus_message* message) const noexcept;
  void operator()(sd_bus_slot* slot) const noexcept;
};

using BusConnection = std::unique_ptr<sd_bus, BusObjectRelease>;
using BusMessage = std::unique_ptr<sd_bus_message, BusObjectRelease>;
/// Its release ends what it stands for: a match, or a call whose answer nobody wants any more.
using BusSlot = std::unique_ptr<sd_bus_slot, BusObjectRelease>;

}  // namespace platform::system
