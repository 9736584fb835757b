// SPDX-License-Identifier: Apache-2.0

// Adds and removes replayed devices. See Devices.h.
#include <functional>
#include <optional>
#include <system_error>

#include "platform/foundation/NSString.h"
#include "platform/foundation/PrintableText.h"
#include "router/Recording.h"
#include "router/ReplayConfiguration.h"
#include "router/ReplaySource.h"
#include "router/ReportDescriptor.h"

namespace router {

namespace {

namespace fs = std::filesystem;
using platform::SystemRoot;

/// The longest name of a configuration or recording, before a number is added.
constexpr std::size_t kLongestBase = 100;
constexpr std::string_view kRecordingSuffix = ".hid";

/// A name derived from the recording's, with only the characters that a configuration may have.
std::string configurationNameFor(const fs::path& recording) {
  std::string name;
  for (const char c : recording.stem().string()) {
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '-' || c == '_' ||
                         (c == '.' && !name.empty());
    // A run of other characters becomes a single "_".
    if (isPlain || !name.ends_with('_')) name += isPlain ? c : '_';
  }
  return name.substr(0, kLongestBase);
}

/// `base` itself for number 1.
std::string numbered(const std::string& base, std::size_t number) {
  return number == 1 ? base : base + "-" + std::to_string(number);
}

/// Whether `name` is one of the numbered names of `base`.
bool isNumbered(const std::string& name, const std::string& base) {
  if (!name.starts_with(base)) return false;
  const std::string_view rest = std::string_view(name).substr(base.size());
  return rest.empty() || (rest.size() > 1 && rest.front() == '-' &&
                          rest.find_first_not_of("0123456789", 1) == std::string_view::npos);
}

void requirePlayable(RecordingReader reader, const fs::path& file) {
  try {
    ReportDescriptor::parse(readSummary(reader).header.reportDescriptor);
  } catch (const ReportDescriptorError& error) {
    throw DeviceError(file.string() + ": report descriptor, " + error.what());
  }
}

/// Checks what is being copied, not the file before or after: it may change in between.
void copyPlayable(const RecordingFile& file, const fs::path& path, const DeviceFiles& files,
                  FileDraft* draft) {
  try {
    requirePlayable(file.read([&](std::span<const char> bytes) {
      draft->append({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    }),
                    path);
  } catch (const std::system_error& error) {
    throw DeviceError(path.string() + ": cannot be copied into " + files.recordingPath() + ": " +
                          error.code().message(),
                      error.code());
  }
}

bool hasSameSettings(ReplayDevice a, const ReplayDevice& b) {
  a.configuration = b.configuration;
  a.recording = b.recording;
  return a == b;
}

bool isCopy(const DeviceFiles& files, const std::string& name, const FileDraft& draft) try {
  return haveSameContent(files.openRecording(name).descriptor.get(), draft.descriptor());
} catch (const FileError&) {
  return false;
}

std::optional<ReplayDevice> configuredDevice(const SystemRoot& root, const std::string& name) {
  for (const ConfiguredDevice& each : configuredReplayDevices(root)) {
    if (each.configuration == name) return each.device;
  }
  return std::nullopt;
}

/// Removes the recording, unless it has been replaced or a configuration plays it.
void removeUnused(const SystemRoot& root, const std::string& recording, const FileStamp& stamp) {
  const DeviceFiles files(root);
  for (const ConfiguredDevice& each : configuredReplayDevices(root)) {
    if (each.device && each.device->recording == recording) return;
  }
  try {
    if (files.recordingStamp(recording) == stamp) files.removeRecording(recording);
  } catch (const FileError& error) {
    throw DeviceError(files.recordingPath(recording) + ": " + error.what(), error.code());
  }
}

/// Returns whether a configuration was written. If not, the copy that it would have named is
/// removed.
bool configureCopy(const DeviceFiles& files, const std::string& recording,
                   const std::function<bool()>& write) {
  const auto takeBack = [&] {
    try {
      files.removeRecording(recording);
    } catch (const FileError&) {
      // No configuration names it, so it does no harm.
    }
  };
  try {
    if (write()) return true;
  } catch (...) {
    takeBack();
    throw;
  }
  takeBack();
  return false;
}

/// The old configuration stays complete until it is replaced, so the copy gets a name that is free.
void replaceConfiguration(const SystemRoot& root, ReplayDevice device, FileDraft* draft) {
  const DeviceFiles files(root);
  const auto write = [&] {
    files.writeConfiguration(device.configuration, replayConfigurationData(device)->span());
    return true;
  };
  const auto before = configuredDevice(root, device.configuration);
  if (before && isCopy(files, before->recording, *draft)) {
    device.recording = before->recording;
    write();
    return;
  }
  const auto stamp = before ? files.recordingStamp(before->recording) : std::nullopt;
  const std::string base = device.configuration.substr(0, kLongestBase);
  std::size_t number = 1;
  do {
    device.recording = numbered(base, number++) + std::string(kRecordingSuffix);
  } while (!draft->take(device.recording));
  configureCopy(files, device.recording, write);
  if (stamp) removeUnused(root, before->recording, *stamp);
}

/// Returns a name that was free for the configuration and its copy.
std::string createConfiguration(const DeviceFiles& files, ReplayDevice device,
                                const std::string& base, FileDraft* draft) {
  for (std::size_t number = 1;; ++number) {
    std::string name = numbered(base, number);
    device.recording = name + std::string(kRecordingSuffix);
    if (!draft->take(device.recording)) continue;
    const auto content = replayConfigurationData(device);
    const bool isCreated = configureCopy(
        files, device.recording, [&] { return files.createConfiguration(name, content->span()); });
    if (isCreated) return name;
  }
}

/// Returns the name of the configuration: the one that the device asks for; otherwise an existing
/// one that says the same; otherwise a free one.
std::string configure(const SystemRoot& root, const ReplayDevice& device, FileDraft* draft) {
  const DeviceFiles files(root);
  if (!device.configuration.empty()) {
    replaceConfiguration(root, device, draft);
    return device.configuration;
  }
  const std::string base = configurationNameFor(device.recording);
  for (const ConfiguredDevice& other : configuredReplayDevices(root)) {
    if (other.device && isNumbered(other.configuration, base) &&
        hasSameSettings(*other.device, device) && isCopy(files, other.device->recording, *draft))
      return other.configuration;
  }
  return createConfiguration(files, device, base, draft);
}

std::uint64_t registryEntryIDOf(const SystemRoot& root, const std::string& configuration) {
  for (const ConfiguredDevice& each : configuredReplayDevices(root)) {
    if (each.configuration == configuration && each.problem.empty())
      return each.description.registryEntryID;
  }
  throw DeviceError(configuration + ".plist: was written, but cannot be read back");
}

/// Copies the recording and configures it.
std::uint64_t setUp(const SystemRoot& root, const ReplayDevice& device, const RecordingFile& file) {
  const DeviceFiles files(root);
  try {
    // Others may read the copy if they may read the original.
    FileDraft draft = files.draftRecording(0600U | (file.mode() & 0044U));
    copyPlayable(file, device.recording, files, &draft);
    return registryEntryIDOf(root, configure(root, device, &draft));
  } catch (const FileError& error) {
    throw DeviceError(root.deviceSources().string() + ": " + error.what(), error.code());
  } catch (const std::system_error& error) {
    throw DeviceError(root.deviceSources().string() + ": " + error.what(), error.code());
  }
}

}  // namespace

std::uint64_t addReplayDevice(const SystemRoot& root, const ReplayDevice& device) {
  if (root.isSystem()) {
    throw DeviceError(
        "the system's own root has the computer's devices only; a recording becomes a device on a "
        "root of your own");
  }
  ReplayDevice added = device;
  added.name = platform::printableLine(device.name, RouterLimits::kNameCharacters);
  if (!added.configuration.empty() && !SystemRoot::isValidLabel(added.configuration)) {
    throw DeviceError("'" + added.configuration +
                      "' is not a valid name for a device's configuration");
  }
  try {
    const RecordingFile file = RecordingFile::at(added.recording, added.device);
    requirePlayable(file.read(), added.recording);  // before anything is created for it
    return setUp(root, added, file);
  } catch (const RecordingError& error) {
    throw DeviceError(error.what(), error.code());
  }
}

std::vector<ConfiguredDevice> configuredReplayDevices(const SystemRoot& root) {
  if (root.isSystem()) return {};
  return ReplaySource(root).configured();
}

bool removeReplayDevice(const SystemRoot& root, const std::string& configuration) {
  if (root.isSystem()) return false;
  const DeviceFiles files(root);
  const auto device = configuredDevice(root, configuration);
  // As long as the old copy exists, nobody else's copy can get its name.
  const auto copy = device ? files.recordingStamp(device->recording) : std::nullopt;
  try {
    if (!files.removeConfiguration(configuration)) return false;
  } catch (const FileError& error) {
    throw DeviceError(files.configurationPath(configuration) + ": " + error.what(), error.code());
  }
  if (copy) removeUnused(root, device->recording, *copy);
  return true;
}

}  // namespace router
