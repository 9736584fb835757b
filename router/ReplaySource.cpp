// SPDX-License-Identifier: Apache-2.0

#include "router/ReplaySource.h"

#include <set>

#include "router/Replay.h"
#include "router/ReplayConfiguration.h"
#include "router/ReplayWatch.h"

namespace router {

/// What one configuration and its recording say, and the stamps that tell whether that is current.
struct ReplaySource::Entry {
  std::string configuration;
  std::optional<FileStamp> configurationStamp;
  std::optional<ReplayDevice> device;
  std::uint64_t preferredID = 0;
  std::optional<FileStamp> recordingStamp;
  DeviceDescription description;
  std::string problem;  // why it is not listed
  bool isSettled = false;
  // The stamp with which the recording was last read to its end without an error.
  std::optional<FileStamp> checkedStamp;
  bool hasTimes = false;
};

/// `known` if it is still current, otherwise a new entry.
std::shared_ptr<const ReplaySource::Entry> ReplaySource::current(
    const std::string& name, const std::shared_ptr<const Entry>& known) const {
  const auto configurationStamp = files_.configurationStamp(name);
  const bool isKnown = known != nullptr && known->isSettled && configurationStamp &&
                       known->configurationStamp == configurationStamp;
  if (isKnown &&
      (!known->device || files_.recordingStamp(known->device->recording) == known->recordingStamp))
    return known;
  auto entry = std::make_shared<Entry>();
  entry->configuration = name;
  try {
    readConfiguration(entry.get());
    readRecording(entry.get());
  } catch (const std::runtime_error& error) {
    entry->problem = files_.configurationPath(name) + ": " + error.what();
  }
  if (known != nullptr && known->device == entry->device) {
    entry->checkedStamp = known->checkedStamp;
    entry->hasTimes = known->hasTimes;
  }
  const auto isOld = [&](const std::optional<FileStamp>& stamp) {
    return !stamp || stamp->isOlderThan(limits_.settling);
  };
  entry->isSettled = isOld(entry->configurationStamp) && isOld(entry->recordingStamp);
  return entry;
}

RecordingFile ReplaySource::openRecording(const ReplayDevice& device) const {
  const std::string path = files_.recordingPath(device.recording);
  try {
    return {files_.openRecording(device.recording), path, device.device};
  } catch (const FileError& error) {
    throw RecordingError(path + ": " + error.what(), error.code());
  }
}

void ReplaySource::readConfiguration(Entry* entry) const {
  try {
    const OpenFile file = files_.openConfiguration(entry->configuration);
    entry->configurationStamp = file.stamp;
    entry->device = readReplayConfiguration(file, entry->configuration, limits_.configurationBytes);
  } catch (const FileError& error) {
    throw DeviceError(error.what(), error.code());
  }
  entry->preferredID = preferredRegistryEntryID(*entry->device);
  entry->description.source = "replay " + entry->device->recording.string();
  entry->description.name = entry->device->name;
}

void ReplaySource::readRecording(Entry* entry) const {
  // Before opening it: if it is replaced in between, the next comparison of stamps shows it.
  entry->recordingStamp = files_.recordingStamp(entry->device->recording);
  const RecordingFile file = openRecording(*entry->device);
  RecordingReader reader = file.read();
  const RecordingHeader& header = reader.header();
  if (entry->description.name.empty()) entry->description.name = header.name;
  entry->description.bus = header.bus;
  entry->description.vendor = header.vendor;
  entry->description.product = header.product;
}

ReplaySource::Entries ReplaySource::refreshed(std::vector<std::string>* problems) const {
  const std::lock_guard lock(mutex_);
  Entries entries;
  std::set<std::uint64_t> taken;
  for (const std::string& name : files_.configurations(limits_.configurations, problems)) {
    const auto known = entries_.find(name);
    auto entry = current(name, known == entries_.end() ? nullptr : known->second);
    if (!entry->problem.empty()) problems->push_back(entry->problem);
    std::uint64_t id = entry->preferredID;
    while (entry->device && !taken.insert(id).second) ++id;
    if (id != entry->description.registryEntryID) {
      auto moved = std::make_shared<Entry>(*entry);
      moved->description.registryEntryID = id;
      entry = std::move(moved);
    }
    entries.emplace(name, std::move(entry));
  }
  entries_ = entries;
  return entries;
}

std::vector<DeviceDescription> ReplaySource::list(std::vector<std::string>* returnProblems) const {
  std::vector<DeviceDescription> devices;
  for (const auto& [name, entry] : refreshed(returnProblems)) {
    if (entry->problem.empty()) devices.push_back(entry->description);
  }
  return devices;
}

std::vector<ConfiguredDevice> ReplaySource::configured() const {
  std::vector<std::string> problems;
  std::vector<ConfiguredDevice> devices;
  for (const auto& [name, entry] : refreshed(&problems)) {
    devices.push_back({name, entry->device, entry->description, entry->problem});
  }
  return devices;
}

std::unique_ptr<OpenDevice> ReplaySource::open(std::uint64_t registryEntryID) const {
  std::vector<std::string> problems;
  for (const auto& [name, entry] : refreshed(&problems)) {
    if (entry->description.registryEntryID != registryEntryID || !entry->problem.empty()) continue;
    try {
      RecordingFile file = openRecording(*entry->device);
      bool hasTimes = entry->hasTimes;
      if (entry->checkedStamp != file.stamp()) {
        RecordingReader reader = file.read();
        hasTimes = readSummary(reader).hasTimes;
        keepSummary(*entry, file.stamp(), hasTimes);
      }
      return std::make_unique<Replay>(std::move(file), hasTimes, *entry->device);
    } catch (const RecordingError& error) {
      throw DeviceError(error.what(), error.code());
    }
  }
  return nullptr;
}

std::optional<std::vector<std::uint8_t>> ReplaySource::reportDescriptorOf(
    std::uint64_t registryEntryID) const {
  std::vector<std::string> problems;
  for (const auto& [name, entry] : refreshed(&problems)) {
    if (entry->description.registryEntryID != registryEntryID || !entry->problem.empty()) continue;
    try {
      const RecordingFile file = openRecording(*entry->device);
      return file.read().header().reportDescriptor;
    } catch (const RecordingError&) {
      return std::nullopt;  // it has been replaced or removed since
    }
  }
  return std::nullopt;
}

std::unique_ptr<DeviceWatch> ReplaySource::watch() const {
  return ReplayWatch::begin(root_);
}

void ReplaySource::keepSummary(const Entry& entry, const FileStamp& stamp, bool hasTimes) const {
  if (!stamp.isOlderThan(limits_.settling)) return;
  const std::lock_guard lock(mutex_);
  const auto known = entries_.find(entry.configuration);
  if (known == entries_.end()) return;
  auto checked = std::make_shared<Entry>(*known->second);
  checked->checkedStamp = stamp;
  checked->hasTimes = hasTimes;
  known->second = std::move(checked);
}

}  // namespace router
