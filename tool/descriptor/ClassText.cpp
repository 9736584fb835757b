// SPDX-License-Identifier: Apache-2.0

#include "tool/descriptor/ClassText.h"

#include "platform/foundation/PrintableText.h"

namespace tool {

std::string className(const router::Classification& classification) {
  return classification.deviceClass == router::DeviceClass::Ordinary ? "ordinary" : "sensitive";
}

std::string classText(const router::Classification& classification) {
  std::string text =
      className(classification) + " (" + platform::printableLine(classification.reason) + ")";
  std::string reports;
  for (const std::uint8_t report : classification.ordinaryReports)
    reports += (reports.empty() ? "" : ", ") + std::to_string(report);
  return reports.empty() ? text : text + "; harmless reports: " + reports;
}

}  // namespace tool
