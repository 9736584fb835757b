// SPDX-License-Identifier: Apache-2.0

// wlhid picture: a recording as a page, or as pictures.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <span>

#include "tool/command/Command.h"
#include "tool/files/NewFile.h"
#include "tool/picture/Page.h"
#include "tool/picture/PictureData.h"
#include "tool/picture/SvgCharts.h"
#include "tool/routing/DeviceNames.h"

namespace tool {

namespace {

struct PictureOptions {
  std::string recording;
  std::string page;
  std::string svgDirectory;
  std::uint32_t device = 0;
};

void writeWhole(const std::string& path, const std::string& text) {
  NewFile file(path);
  file.write(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
  file.keep();
}

void writeCharts(const PictureData& data, const std::filesystem::path& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) throw Failure(directory.string() + ": " + error.message());
  for (const Chart& chart : allCharts(data)) {
    const std::string path = directory / (chart.file + ".svg");
    writeWhole(path, standaloneSvg(chart));
    print(oneLine(path) + ": " + chart.title + "\n");
  }
}

int draw(const PictureOptions& options) {
  if (options.page.empty() && options.svgDirectory.empty())
    throw UsageFailure("picture needs -o FILE.html, --svg DIR or both");
  const PictureData data = readPicture(options.recording, options.device);
  if (!options.page.empty()) writeWhole(options.page, pageOf(data));
  if (!options.svgDirectory.empty()) writeCharts(data, options.svgDirectory);
  return ExitDone;
}

}  // namespace

void addPictureVerb(CLI::App& app, Action& chosen) {
  auto options = std::make_shared<PictureOptions>();
  CLI::App* verb = app.add_subcommand(
      "picture", "Draws a recording: one page for a browser, or single pictures");
  verb->add_option("RECORDING", options->recording, "A recording in the hid-recorder text format")
      ->required();
  verb->add_option("-o,--output", options->page,
                   "The page; it needs no network, and replaces a file of that name")
      ->type_name("FILE");
  verb->add_option("--svg", options->svgDirectory,
                   "A directory for the charts as single SVG files; it is created if\nnecessary")
      ->type_name("DIR");
  verb->add_option("--device", options->device, kDeviceNumberHelp)->type_name("N");
  verb->footer(
      "The page shows the device, the path of X and Y with pressure, each axis and button over\n"
      "time, the times between reports, the report descriptor, and every report in a table. It\n"
      "holds the device's input: whoever gets it can read what was typed.\n"
      "\n"
      "Examples:\n"
      "  wlhid picture recordings/qemu-usb-tablet.hid -o tablet.html\n"
      "  wlhid picture recordings/qemu-usb-tablet.hid --svg pictures");
  verb->callback([options, &chosen] { chosen = [options] { return draw(*options); }; });
}

}  // namespace tool
