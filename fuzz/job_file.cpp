// SPDX-License-Identifier: Apache-2.0

// Job files and control messages of any content: whatever is accepted is within its bounds.
#include <cstdlib>

#include "platform/services/Control.h"
#include "platform/services/JobFile.h"
#include "platform/services/SystemRoot.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

void checkJob(std::span<const std::uint8_t> bytes) {
  std::string reason;
  const auto job = platform::parseJobFile(bytes, "com.x", &reason);
  require(job.has_value() == reason.empty());
  if (!job) return;
  require(job->label == "com.x");
  require(!job->arguments.empty() && job->arguments.size() <= 64 &&
          job->arguments.front().starts_with("/"));
  require(!job->services.empty() && job->services.size() <= 16);
  for (const auto& service : job->services) {
    require(platform::SystemRoot::isValidLabel(service) && platform::mayOffer("com.x", service));
  }
  // What is written for it reads back the same. Some text fits only a binary list.
  try {
    const auto again = platform::parseJobFile(platform::encodeJobFile(*job), "com.x", nullptr);
    require(again && again->arguments == job->arguments && again->services == job->services);
  } catch (const platform::ServiceError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span bytes(data, size);
  checkJob(bytes);
  (void)platform::decodeControlRequest(bytes);
  (void)platform::decodeControlReply(bytes);
  return 0;
}
