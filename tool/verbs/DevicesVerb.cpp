// SPDX-License-Identifier: Apache-2.0

// wlhid devices: lists what can be routed, sets up recordings as devices.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "platform/foundation/PrintableText.h"
#include "platform/services/SystemRoot.h"
#include "router/Devices.h"
#include "tool/command/Command.h"
#include "tool/command/Invocation.h"
#include "tool/command/Numbers.h"
#include "tool/routing/DeviceJson.h"
#include "tool/routing/DeviceNames.h"
#include "tool/routing/SystemDevices.h"
#include "tool/terminal/Table.h"

namespace tool {

namespace {

using platform::SystemRoot;
using router::DeviceDescription;

std::string identity(const DeviceDescription& device) {
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%04x:%04x:%04x", device.bus & 0xffff,
                device.vendor & 0xffff, device.product & 0xffff);
  return text.data();
}

std::string asJson(const std::vector<DeviceDescription>& devices) {
  auto list = nlohmann::ordered_json::array();
  for (const DeviceDescription& device : devices) list.push_back(wholeJsonOf(device));
  return list.dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

/// A name shortened for a column of a table.
std::string nameColumn(const DeviceDescription& device) {
  constexpr std::size_t kWidest = 40;
  return platform::printableLine(device.name, kWidest);
}

std::string asTable(const std::vector<DeviceDescription>& devices) {
  std::size_t width = std::string_view("NAME").size();
  for (const DeviceDescription& device : devices)
    width = std::max(width, characterCount(nameColumn(device)));
  std::string table = padded("REGISTRY ENTRY ID", 20) + padded("NAME", width + 2) +
                      padded("BUS:VENDOR:PRODUCT", 20) + "SOURCE\n";
  for (const DeviceDescription& device : devices) {
    table += padded(hexadecimal(device.registryEntryID), 20) +
             padded(nameColumn(device), width + 2) + padded(identity(device), 20) +
             platform::printableLine(device.source) + "\n";
  }
  return table;
}

/// A configuration's name as an argument that cannot be taken for an option.
std::string typed(const std::string& configuration) {
  return (configuration.starts_with('-') ? "name:" : "") + configuration;
}

/// The command that removes the configuration with this problem; empty if none has it.
std::string removalOf(const std::string& problem) {
  for (const auto& configured : router::configuredReplayDevices(SystemRoot::current())) {
    if (configured.problem == problem)
      return " (" + commandLine({"devices", "remove", typed(configured.configuration)}) +
             " removes it)";
  }
  return {};
}

struct ListOptions {
  bool json = false;
  bool verbose = false;
};

int list(const ListOptions& options) {
  // There the router knows more of them than anybody can see; without it, they are still there.
  if (SystemRoot::current().isSystem() && printSystemDevices(options.json, options.verbose))
    return ExitDone;
  std::vector<std::string> problems;
  const auto devices = router::listDevices(SystemRoot::current(), &problems);
  for (const std::string& problem : problems) complain(problem + removalOf(problem));
  if (options.json) {
    print(asJson(devices));
  } else if (devices.empty() && SystemRoot::current().isSystem()) {
    print("No HID devices are connected, or none that udev has set up yet.\n");
  } else if (devices.empty()) {
    print("No devices. To set up a recording as one: wlhid devices add FILE\n");
  } else {
    print(asTable(devices));
  }
  return ExitDone;
}

struct AddOptions {
  std::string recording;
  std::uint32_t number = 0;  // of the device in the recording
  std::string speed = "1";
  std::string name;
  bool repeat = false;
};

int add(const AddOptions& options) {
  const auto speed = router::ReplaySpeed::parse(options.speed);
  if (!speed)
    throw UsageFailure("--speed: " + options.speed +
                       " is neither a number from 0.001 to 1000 nor max");
  if (options.recording == "-") {
    throw UsageFailure(
        "a device is named after its file, so standard input cannot become one; save it to a file "
        "first (wlhid route --recording - plays it directly)");
  }
  router::ReplayDevice device;
  device.recording = std::filesystem::absolute(options.recording);
  device.speed = *speed;
  device.repeat = options.repeat;
  device.name = options.name;
  device.device = options.number;
  print(hexadecimal(router::addReplayDevice(SystemRoot::current(), device)) + "\n");
  return ExitDone;
}

int remove(const std::string& text) {
  const std::string configuration = configurationOf(text);
  if (!router::removeReplayDevice(SystemRoot::current(), configuration)) {
    throw Failure("the device \"" + text + "\" has already been removed");
  }
  return ExitDone;
}

void addAddVerb(CLI::App& devices, Action& chosen) {
  auto options = std::make_shared<AddOptions>();
  CLI::App* verb = devices.add_subcommand(
      "add", "Sets up a copy of a recording as a device and prints its registry entry ID");
  verb->add_option("FILE", options->recording, "A recording in the hid-recorder text format")
      ->required();
  verb->add_option("--speed", options->speed,
                   "1 (as recorded, the default), a factor, or max (as fast as possible)")
      ->type_name("SPEED");
  verb->add_flag("--repeat", options->repeat,
                 "Start over at the end; otherwise the session ends there, and the\nnext one "
                 "plays the recording from the beginning");
  verb->add_option("--device", options->number, kDeviceNumberHelp)->type_name("N");
  verb->add_option("--name", options->name, "A name to use instead of the one in the recording")
      ->type_name("NAME");
  verb->footer("Example:\n  wlhid devices add recordings/qemu-usb-mouse.hid --speed 2 --repeat");
  verb->callback([options, &chosen] { chosen = [options] { return add(*options); }; });
}

void addRemoveVerb(CLI::App& devices, Action& chosen) {
  auto device = std::make_shared<std::string>();
  CLI::App* verb = devices.add_subcommand("remove", "Removes a recorded device");
  verb->add_option("DEVICE", *device,
                   std::string(kDeviceHelp) +
                       ".\nA configuration that yields no device: its "
                       "file name without .plist")
      ->required();
  verb->footer("Example:\n  wlhid devices remove 0x1a2b3c4d5");
  verb->callback([device, &chosen] { chosen = [device] { return remove(*device); }; });
}

}  // namespace

void addDevicesVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<ListOptions>();
  CLI::App* verb = app.add_subcommand(
      "devices", "Lists the devices that can be routed, adds and removes recorded ones");
  verb->add_flag("--json", options->json, "Print a JSON array");
  verb->add_flag("-v,--verbose", options->verbose,
                 "On the system's own root: also print which rule decided a device's class");
  verb->require_subcommand(0, 1);
  verb->fallthrough();
  addAddVerb(*verb, chosen);
  addRemoveVerb(*verb, chosen);
  verb->footer(
      "Without a subcommand: lists them; on the system's own root with the class of each and "
      "whether you\n"
      "may have it routed. A sensitive device can carry what is typed, passwords included.\n"
      "\n"
      "Example:\n"
      "  wlhid devices --json");
  verb->preparse_callback(
      [options, &chosen](std::size_t) { chosen = [options] { return list(*options); }; });
}

}  // namespace tool
