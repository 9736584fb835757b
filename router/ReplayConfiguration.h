// A replayed device as its configuration file says it. See Devices.h for the keys.
//
// Threading: any thread.
// Errors: DeviceError, the cause without the file's name.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/foundation/NSData.h"
#include "router/DeviceFiles.h"
#include "router/Devices.h"

namespace router {

/// The device that an opened configuration describes, which may have at most `limit` bytes.
[[nodiscard]] ReplayDevice readReplayConfiguration(const OpenFile& file, const std::string& name,
                                                   std::size_t limit);
[[nodiscard]] std::shared_ptr<platform::NSData> replayConfigurationData(const ReplayDevice& device);

/// The ID that follows from the configuration alone. Two devices may have the same by accident; the
/// later one in the order of names then has the next that is free.
[[nodiscard]] std::uint64_t preferredRegistryEntryID(const ReplayDevice& device);

}  // namespace router
