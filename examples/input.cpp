// SPDX-License-Identifier: Apache-2.0

// Prints what the first pen sends until Enter is pressed. It goes on by itself after the router's
// death, an update or an unplugged pen, and says meanwhile what it waits for.
#include <iostream>

#include "WLHIDAccess/Input.h"

int main() {
  const wlhid::Input pen(
      {.which = {.matching = {{.usagePage = 0x0d, .usage = 0x02}}}},
      {.values =
           [](std::span<const wlhid::Value> values) {
             for (const wlhid::Value& value : values)
               std::cout << value.usage.name() << '=' << value.value << ' ';
             std::cout << std::endl;
           },
       .status = [](const wlhid::Status& status) { std::cout << status.text << std::endl; }});
  std::cin.get();
}
