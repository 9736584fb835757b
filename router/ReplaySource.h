// Devices that are recordings. See Devices.h for their configuration.
//
// Threading, Ownership, Errors, Order: as in Devices.h.
#pragma once

#include "router/Devices.h"
#include "router/Recording.h"

namespace router {

/// When each report of a recording is due, counted from the first. A recording's clock says it,
/// except that where the clock says nothing (it restarts, the recording has no times at all, or it
/// begins again) kUntimedInterval passes.
/// Nothing is due later than a century.
class ReplaySchedule {
 public:
  static constexpr std::chrono::microseconds kUntimedInterval{8000};

  ReplaySchedule(const Recording& recording, double speed);
  [[nodiscard]] std::chrono::nanoseconds due(std::size_t index) const { return due_[index]; }
  /// From one beginning to the next.
  [[nodiscard]] std::chrono::nanoseconds period() const { return period_; }

 private:
  std::vector<std::chrono::nanoseconds> due_;
  std::chrono::nanoseconds period_{};
};

class ReplaySource final : public DeviceSource {
 public:
  explicit ReplaySource(std::filesystem::path directory) : directory_(std::move(directory)) {}
  std::vector<DeviceDescription> list(std::vector<std::string>* returnProblems) const override;
  [[nodiscard]] std::unique_ptr<OpenDevice> open(std::uint64_t registryEntryID) const override;
  /// The ID of the device that the file `configuration`.plist describes.
  [[nodiscard]] std::optional<std::uint64_t> registryEntryIDOf(
      const std::string& configuration) const;
  /// The name of the file, without ".plist", that describes the device with that ID.
  [[nodiscard]] std::optional<std::string> configurationOf(std::uint64_t registryEntryID) const;

 private:
  struct Configured;
  std::vector<Configured> configurations(std::vector<std::string>* returnProblems) const;

  std::filesystem::path directory_;
};

}  // namespace router
