// The smallest executable file that carries an information property list, for scripted helpers.
//
// Threading: pure functions.
// Ownership: the caller's.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// A thin 64-bit Mach-O image whose one section, __TEXT,__info_plist, holds `infoPlist`. No code.
[[nodiscard]] std::vector<std::uint8_t> helperImageWithInfoPlist(std::string_view infoPlist);

/// An XML property list with the one entry CFBundleVersion. `version` holds no markup.
[[nodiscard]] std::string infoPlistWithVersion(std::string_view version);

}  // namespace platform
