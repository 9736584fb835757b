// SPDX-License-Identifier: Apache-2.0

// The smallest executable file with an information property list, for scripted helpers.
//
// Threading: any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// A thin 64-bit Mach-O image whose only section, __TEXT,__info_plist, contains `infoPlist`. No
/// code.
[[nodiscard]] std::vector<std::uint8_t> helperImageWithInfoPlist(std::string_view infoPlist);

/// An XML property list with the single entry CFBundleVersion. `version` must not contain markup.
[[nodiscard]] std::string infoPlistWithVersion(std::string_view version);

}  // namespace platform
