// SPDX-License-Identifier: Apache-2.0

// An application that watches the devices of one product, or receives the input of whichever is
// there.
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <mutex>

#include "WLHIDAccess/Input.h"
#include "platform/foundation/Format.h"
#include "tests/vm/programs/Program.h"

namespace vm {
namespace {

constexpr std::string_view kUsage =
    "usage: input-probe watch|input VENDOR PRODUCT\n"
    "VENDOR and PRODUCT are hexadecimal. Ends with its input.\n"
    "  watch  prints listed, arrived ID, departed ID, unavailable WHY, and opens each device as "
    "soon\n"
    "         as it is told of it\n"
    "  input  receives the input of one that is there\n"
    "Both print \"STATE: TEXT\" for each status of an input, and \"report HEX\".\n";

/// Lines of several threads, never mixed.
void tell(const std::string& line) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  say(line);
}

wlhid::InputHandlers telling() {
  return {.report =
              [](const wlhid::Report& report) {
                const auto* const first =
                    reinterpret_cast<const std::uint8_t*>(report.bytes.data());
                tell("report " + hex({first, report.bytes.size()}));
              },
          .status =
              [](const wlhid::Status& status) {
                tell(std::string(nameOf(status.state)) + ": " + status.text);
              }};
}

std::string idOf(const wlhid::Device& device) {
  return platform::stringWithFormat("0x%llx", device.id);
}

void watch(const wlhid::DeviceFilter& filter) {
  std::map<std::uint64_t, std::unique_ptr<wlhid::Input>> inputs;  // the watch's callbacks only
  const auto arrived = [&](const wlhid::Device& device) {
    tell("arrived " + idOf(device));
    inputs[device.id] =
        std::make_unique<wlhid::Input>(wlhid::InputOptions{.device = device.id}, telling());
  };
  const auto departed = [&](const wlhid::Device& device) {
    tell("departed " + idOf(device));
    inputs.erase(device.id);
  };
  const wlhid::DeviceWatch watch(
      {.listed = [](const std::vector<wlhid::Device>&) { tell("listed"); },
       .arrived = arrived,
       .departed = departed,
       .unavailable = [](const std::string& why) { tell("unavailable " + why); }},
      filter);
  std::cin.ignore(std::numeric_limits<std::streamsize>::max());
}

void receive(const wlhid::DeviceFilter& filter) {
  const wlhid::Input input({.which = filter}, telling());
  std::cin.ignore(std::numeric_limits<std::streamsize>::max());
}

std::uint32_t hexadecimal(const std::string& text) {
  return static_cast<std::uint32_t>(std::stoul(text, nullptr, 16));
}

void serve(const std::vector<std::string>& arguments) {
  if (arguments.size() != 3) throw UsageError();
  const wlhid::DeviceFilter filter{
      .matching = {{.vendor = hexadecimal(arguments[1]), .product = hexadecimal(arguments[2])}}};
  if (arguments[0] == "watch") return watch(filter);
  if (arguments[0] == "input") return receive(filter);
  throw UsageError();
}

}  // namespace
}  // namespace vm

int main(int argc, char** argv) {
  return vm::run(vm::serve, argc, argv, vm::kUsage);
}
