// SPDX-License-Identifier: Apache-2.0

// wlhid descriptor: a report descriptor as a tree.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/foundation/Format.h"
#include "router/ReportDescriptor.h"
#include "router/policy/DeviceClass.h"
#include "tool/command/Command.h"
#include "tool/descriptor/ClassText.h"
#include "tool/descriptor/DescriptorFaults.h"
#include "tool/descriptor/DescriptorJson.h"
#include "tool/descriptor/DescriptorSource.h"
#include "tool/descriptor/DescriptorTree.h"
#include "tool/findings/InventoryJson.h"

namespace tool {

namespace {

struct DescriptorOptions {
  std::string what;
  std::uint32_t device = 0;
  bool json = false;
};

/// All that is said about a descriptor.
struct Explained {
  explicit Explained(NamedDescriptor what)
      : named(std::move(what)),
        parsed(router::ReportDescriptor::parseUpToFault(named.facts.reportDescriptor)),
        tree(treeOf(parsed.descriptor)),
        faults(faultsOf(named.facts.reportDescriptor, parsed)),
        classification(router::classify(named.facts)) {}

  NamedDescriptor named;
  router::FaultyDescriptor parsed;
  std::vector<DescriptorNode> tree;
  std::vector<DescriptorFault> faults;
  router::Classification classification;
};

std::string counted(std::size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string asText(const Explained& explained) {
  std::string text = oneLine(explained.named.name) + ": " +
                     counted(explained.named.facts.reportDescriptor.size(), "byte") + ", " +
                     counted(explained.parsed.descriptor.elementCount(), "element") + "\n" +
                     "Class: " + classText(explained.classification) +
                     "\nReports: " + reportList(explained.parsed.descriptor) + "\n\n  BYTE\n";
  forEachNode(explained.tree, [&](const DescriptorNode& node, std::size_t depth) {
    text += platform::stringWithFormat("%6zu  ", node.offset) + std::string(2 * depth, ' ') +
            lineOf(node) + "\n";
  });
  if (!explained.faults.empty()) text += "\n";
  for (const DescriptorFault& fault : explained.faults) {
    text += (fault.isFatal ? "FAULT at byte " : "Note, byte ") + std::to_string(fault.offset) +
            ": " + fault.text + "\n";
  }
  return text;
}

nlohmann::ordered_json asJson(const Explained& explained) {
  return {{"name", explained.named.name},
          {"bytes", explained.named.facts.reportDescriptor.size()},
          {"elements", explained.parsed.descriptor.elementCount()},
          {"class", className(explained.classification)},
          {"reason", explained.classification.reason},
          {"ordinaryReports", explained.classification.ordinaryReports},
          {"reports", reportsJson(explained.parsed.descriptor)},
          {"faults", jsonOf(explained.faults)},
          {"items", jsonOf(explained.tree)}};
}

int describe(const DescriptorOptions& options) {
  const Explained explained(descriptorNamed(options.what, options.device));
  print(options.json ? dumped(asJson(explained)) : asText(explained));
  return explained.parsed.fault ? ExitNotSo : ExitDone;
}

}  // namespace

void addDescriptorVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<DescriptorOptions>();
  CLI::App* verb = app.add_subcommand(
      "descriptor", "Explains a report descriptor: its reports, fields, class and faults");
  verb->add_option("FILE|DEVICE", options->what,
                   "A descriptor (raw bytes or hexadecimal text) or a recording, - for\nstandard "
                   "input; or a device's name or registry entry ID")
      ->required();
  verb->add_option("--device", options->device,
                   "Which device of a recording of several (default 0)")
      ->type_name("N");
  verb->add_flag("--json", options->json, "Print a JSON object");
  verb->footer(
      "The first number of each line is the offset of the item's first byte. What stops the\n"
      "router is a FAULT; a note says what the device's maker probably did not mean.\n"
      "Exit status: 1 if there is a fault.\n"
      "\n"
      "Examples:\n"
      "  wlhid descriptor recordings/qemu-usb-tablet.hid\n"
      "  wlhid descriptor /sys/class/hidraw/hidraw0/device/report_descriptor --json");
  verb->callback([options, &chosen] { chosen = [options] { return describe(*options); }; });
}

}  // namespace tool
