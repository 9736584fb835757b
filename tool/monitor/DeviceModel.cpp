// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/DeviceModel.h"

namespace tool::monitor {

DeviceModel::DeviceModel(std::span<const std::uint8_t> descriptor)
    : decoder_(std::make_shared<const router::ReportDescriptor>(
          router::ReportDescriptor::parseUpToFault(descriptor).descriptor)),
      tracks_(decoder_.descriptor()),
      paths_(pathsOf(tracks_.all())),
      board_(decoder_.descriptor()) {}

void DeviceModel::take(Time time, std::span<const std::uint8_t> report) {
  const std::uint32_t reportID = decoder_.reportID(report);
  pace_.take(time);
  reports_.take(time, reportID, report);
  const auto values = decoder_.decode(report);
  tracks_.take(time, values);
  for (Path& path : paths_) path.take(time, values);
  board_.take(reportID, values);
}

}  // namespace tool::monitor
