// SPDX-License-Identifier: Apache-2.0

#include "platform/system/BusTypes.h"

#include <systemd/sd-bus.h>

namespace platform::system {

void BusObjectRelease::operator()(sd_bus* connection) const noexcept {
  sd_bus_close_unref(connection);
}

void BusObjectRelease::operator()(sd_bus_message* message) const noexcept {
  sd_bus_message_unref(message);
}

void BusObjectRelease::operator()(sd_bus_slot* slot) const noexcept {
  sd_bus_slot_unref(slot);
}

}  // namespace platform::system
