// SPDX-License-Identifier: Apache-2.0

// A replayed device as described by its configuration file. See Devices.h for the keys.
//
// Threading: any thread.
// Errors: DeviceError with the cause, without the file's name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/foundation/NSData.h"
#include "router/DeviceFiles.h"
#include "router/Devices.h"

namespace router {

/// The device that an opened configuration of at most `limit` bytes describes.
[[nodiscard]] ReplayDevice readReplayConfiguration(const OpenFile& file, const std::string& name,
                                                   std::size_t limit);
[[nodiscard]] std::shared_ptr<platform::NSData> replayConfigurationData(const ReplayDevice& device);

/// The ID derived from the configuration alone. Two devices may collide; the one whose name sorts
/// later then gets the next free ID.
[[nodiscard]] std::uint64_t preferredRegistryEntryID(const ReplayDevice& device);

}  // namespace router
