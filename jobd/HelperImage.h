// SPDX-License-Identifier: Apache-2.0

// A helper executable as it is installed: a Mach-O file that names its job and contains the program
// for this machine.
//
//   __TEXT,__info_plist      CFBundleIdentifier (the job's label), CFBundleVersion
//   __TEXT,__launchd_plist   Label (the same), MachServices
//   __ELF,__program          an ELF executable for this machine
//
// Threading: pure functions.
// Ownership: HelperImage::program is a view into the bytes that were parsed.
// Errors: ServiceError (InvalidImage) that says what is missing or invalid.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace jobd {

struct HelperImage {
  std::string label;
  std::string version;
  std::vector<std::string> services;
  std::span<const std::uint8_t> program;
};

/// Checks that the image is the helper `label` and complete.
[[nodiscard]] HelperImage parseHelperImage(std::span<const std::uint8_t> image,
                                           std::string_view label);

/// The program alone, checked to be for this machine.
[[nodiscard]] std::span<const std::uint8_t> programOfImage(std::span<const std::uint8_t> image);

}  // namespace jobd
