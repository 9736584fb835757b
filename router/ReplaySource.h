// SPDX-License-Identifier: Apache-2.0

// Devices that are recordings. See Devices.h for their configuration.
//
// File contents are cached, and a file is read again only when its stamp (device, inode, size,
// times) has changed: a request costs one stat call per file.
//
// Threading, Ownership, Errors, Order: as in Devices.h.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/services/SystemRoot.h"
#include "router/DeviceFiles.h"
#include "router/Devices.h"
#include "router/Recording.h"
#include "router/RouterLimits.h"

namespace router {

class ReplaySource final : public DeviceSource {
 public:
  explicit ReplaySource(platform::SystemRoot root, const RouterLimits& limits = {})
      : root_(root), files_(std::move(root)), limits_(limits) {}
  std::vector<DeviceDescription> list(std::vector<std::string>* returnProblems) const override;
  [[nodiscard]] std::unique_ptr<OpenDevice> open(std::uint64_t registryEntryID) const override;
  [[nodiscard]] std::optional<std::vector<std::uint8_t>> reportDescriptorOf(
      std::uint64_t registryEntryID) const override;
  [[nodiscard]] std::unique_ptr<DeviceWatch> watch() const override;

  /// Every configuration, including those that yield no device.
  [[nodiscard]] std::vector<ConfiguredDevice> configured() const;

 private:
  struct Entry;
  using Entries = std::map<std::string, std::shared_ptr<const Entry>>;  // by configuration name

  /// The current content of the files. Entries are never modified, only replaced.
  Entries refreshed(std::vector<std::string>* problems) const;
  [[nodiscard]] std::shared_ptr<const Entry> current(
      const std::string& name, const std::shared_ptr<const Entry>& known) const;
  [[nodiscard]] RecordingFile openRecording(const ReplayDevice& device) const;
  void readConfiguration(Entry* entry) const;
  void readRecording(Entry* entry) const;
  void keepSummary(const Entry& entry, const FileStamp& stamp, bool hasTimes) const;

  const platform::SystemRoot root_;
  const DeviceFiles files_;
  const RouterLimits limits_;
  mutable std::mutex mutex_;
  mutable Entries entries_;
};

}  // namespace router
