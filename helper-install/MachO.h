// SPDX-License-Identifier: Apache-2.0

// Finds a section in the bytes of a Mach-O executable, thin or fat.
//
// Only what the search needs is read: the magic, the number of architectures or load commands, and
// the section records of segment commands. The rest of the file is not checked.
//
// Threading: any thread.
// Ownership: the result is a view of `image` and valid as long as its bytes are.
// Errors: never throws for the image's contents: a malformed, truncated or hostile file has no such
//   section.
// Order: architectures, load commands and section records are searched in file order; the first
//   match wins.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

/// The bytes of section `section` of segment `segment`, or nothing.
///
/// Names are compared as the format stores them: 16 bytes, terminated by the first NUL. The segment
/// name is the one in the section record itself. Records with a size or file offset of 0 have no
/// bytes in the file and are skipped.
///
/// In a fat file the slices for Intel and PowerPC processors are searched in order; those for ARM
/// are not. A thin image is searched whatever its processor. Images of the opposite byte order are
/// not searched.
///
/// Takes at most linear time in the image's length: a file that would make the search read the same
/// places over and over (slices that contain themselves, overlapping commands) has no such section.
std::optional<std::span<const std::uint8_t>> findMachOSection(std::span<const std::uint8_t> image,
                                                              std::string_view segment,
                                                              std::string_view section);
