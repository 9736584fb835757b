// Replayed devices are set up and taken away here. See Devices.h.
#include <algorithm>

#include "platform/foundation/NSString.h"
#include "platform/foundation/PrintableText.h"
#include "router/Recording.h"
#include "router/ReplayConfiguration.h"
#include "router/ReplaySource.h"
#include "router/ReportDescriptor.h"

namespace router {

namespace {

namespace fs = std::filesystem;

/// A file name made of the recording's, of what such a name may hold.
std::string configurationNameFor(const fs::path& recording) {
  constexpr std::size_t kLongest = 100;
  std::string name;
  for (const char c : recording.stem().string()) {
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '-' || c == '_' ||
                         (c == '.' && !name.empty());
    // What has no place in the name leaves one "_", however long it is.
    if (isPlain || !name.ends_with('_')) name += isPlain ? c : '_';
  }
  return name.substr(0, kLongest);
}

/// Where the file lies by its own name: what whoever adds it means by links is settled now.
fs::path withoutLinks(const fs::path& file) {
  std::error_code missing;
  const fs::path settled = fs::canonical(file, missing);
  return missing ? fs::absolute(file).lexically_normal() : settled;
}

void requirePlayable(const ReplayDevice& device) {
  try {
    const RecordingFile file(device.recording, device.device);
    RecordingReader reader = file.read();
    ReportDescriptor::parse(readSummary(reader).header.reportDescriptor);
  } catch (const RecordingError& error) {
    throw DeviceError(error.what(), error.code());
  } catch (const ReportDescriptorError& error) {
    throw DeviceError(device.recording.string() + ": report descriptor, " + error.what());
  }
}

bool isSame(ReplayDevice a, const ReplayDevice& b) {
  a.configuration = b.configuration;
  return a == b;
}

/// The name of the configuration that was written: the one that the device asks for; else of one
/// that says the same already; else one that was free.
std::string configure(const platform::SystemRoot& root, ReplayDevice device) {
  const DeviceFiles files(root);
  if (!device.configuration.empty()) {
    files.writeConfiguration(device.configuration, replayConfigurationData(device)->span());
    return device.configuration;
  }
  for (const ConfiguredDevice& other : configuredReplayDevices(root)) {
    if (other.device && isSame(*other.device, device)) return other.configuration;
  }
  const std::string base = configurationNameFor(device.recording);
  const auto content = replayConfigurationData(device);
  std::string name = base;
  for (std::size_t i = 2; !files.createConfiguration(name, content->span()); ++i) {
    name = base + "-" + std::to_string(i);
  }
  return name;
}

}  // namespace

std::uint64_t addReplayDevice(const platform::SystemRoot& root, const ReplayDevice& device) {
  ReplayDevice added = device;
  added.recording = withoutLinks(device.recording);
  added.name = platform::printableLine(device.name, RouterLimits::kNameCharacters);
  if (!added.configuration.empty() && !platform::SystemRoot::isValidLabel(added.configuration)) {
    throw DeviceError("'" + added.configuration + "' is no name for a device's configuration");
  }
  if (!platform::isValidUTF8(added.recording.string())) {
    throw DeviceError(platform::printableLine(added.recording.string()) +
                      ": the path is not UTF-8, and cannot be written into a configuration");
  }
  requirePlayable(added);
  try {
    const std::string name = configure(root, added);
    for (const ConfiguredDevice& configured : configuredReplayDevices(root)) {
      if (configured.configuration == name && configured.problem.empty())
        return configured.description.registryEntryID;
    }
    throw DeviceError(name + ".plist: was written, but cannot be read back");
  } catch (const FileError& error) {
    throw DeviceError(
        DeviceFiles(root).configurationPath(added.configuration) + ": " + error.what(),
        error.code());
  }
}

std::vector<ConfiguredDevice> configuredReplayDevices(const platform::SystemRoot& root) {
  return ReplaySource(root).configured();
}

bool removeReplayDevice(const platform::SystemRoot& root, const std::string& configuration) {
  const DeviceFiles files(root);
  try {
    return files.removeConfiguration(configuration);
  } catch (const FileError& error) {
    throw DeviceError(files.configurationPath(configuration) + ": " + error.what(), error.code());
  }
}

}  // namespace router
