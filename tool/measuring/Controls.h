// SPDX-License-Identifier: Apache-2.0

// What a person can move or press on a device, as its report descriptor says.
//
// Threading: any thread.
// Ownership: a control points into the descriptor.
// Order: that of the descriptor.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/kit/KQHIDDeviceElementValue.h"
#include "router/ReportDescriptor.h"

namespace tool {

struct Control {
  enum class Kind {
    Axis,    ///< has more than two values
    Button,  ///< on or off
    Key,     ///< one of those that a slot of an array can select
  };
  Kind kind = Kind::Axis;
  std::string name;  ///< no two controls of a device have the same
  const router::ReportField* field = nullptr;
  std::uint32_t cookie = 0;  ///< of a key: of its array's first slot
  router::Usage usage;

  /// Whether the value of a report is this control's. That of a key says that it is down.
  [[nodiscard]] bool isValue(const platform::HIDElementValueRecord& value) const {
    if (kind != Kind::Key) return value.cookie == cookie;
    return value.cookie >= cookie && value.cookie < cookie + field->count &&
           value.usagePage == usage.page && value.usage == usage.id;
  }
};

/// Values without a usage and a vendor's own are nothing that a person can name. At most 1024.
[[nodiscard]] std::vector<Control> controlsOf(const router::ReportDescriptor& descriptor);

}  // namespace tool
