#include "tool/RecordingEnd.h"

#include <algorithm>

#include "router/ReportDecoder.h"
#include "router/ReportDescriptor.h"
#include "tool/Command.h"

namespace tool {

namespace {

std::shared_ptr<const router::ReportDescriptor> parseDescriptor(const router::Recording& recording,
                                                                const std::string& fileName) {
  try {
    return std::make_shared<const router::ReportDescriptor>(
        router::ReportDescriptor::parse(recording.header().reportDescriptor));
  } catch (const router::ReportDescriptorError& error) {
    throw Failure(fileName + ": " + error.what());
  }
}

}  // namespace

LastDelivery lastDeliveryOf(const router::Recording& recording, const std::set<UsageCode>& tags,
                            const std::string& fileName) {
  const std::size_t reports = recording.reportCount();
  if (reports == 0) throw Failure(fileName + ": holds no reports");
  router::ReportDecoder decoder(parseDescriptor(recording, fileName));
  const auto values = decoder.decode(recording.report(reports - 1));
  const bool follow =
      std::ranges::any_of(values, [&](const platform::HIDElementValueRecord& value) {
        return tags.empty() || tags.contains(UsageCode{value.usagePage} << 16 | value.usage);
      });
  return {reports, follow};
}

}  // namespace tool
