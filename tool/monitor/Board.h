// SPDX-License-Identifier: Apache-2.0

// Keys and buttons, and which are down.
//
// Threading: one thread at a time.
// Order: that of the descriptor.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/kit/KQHIDDeviceElementValue.h"
#include "router/ReportDescriptor.h"

namespace tool::monitor {

struct BoardKey {
  std::string name;
  bool isDown = false;
  std::uint64_t lastDown = 0;  ///< the number of the report with which it went down; 0: never
};

class Board {
 public:
  explicit Board(const router::ReportDescriptor& descriptor);

  void take(std::uint32_t reportID, std::span<const platform::HIDElementValueRecord> values);
  [[nodiscard]] const std::vector<BoardKey>& keys() const { return keys_; }

 private:
  struct Place {
    std::uint32_t reportID = 0;
    std::uint32_t firstCookie = 0;
    std::uint32_t cookies = 1;  // of an array: its slots
    bool isSelected = false;    // by a slot, rather than on or off
    router::Usage usage;
  };
  void set(std::size_t index, bool isDown);
  void takeSelection(const platform::HIDElementValueRecord& value, std::vector<bool>& down) const;

  std::vector<BoardKey> keys_;
  std::vector<Place> places_;  // of the keys
  std::vector<bool> down_;     // by the latest report
  std::uint64_t reports_ = 0;
};

}  // namespace tool::monitor
