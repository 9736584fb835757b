// Finding a section in the bytes of a Mach-O executable, thin or fat.
//
// Only what the search needs is read: the magic, the count of architectures or load commands, and
// the section records of segment commands. Everything else in the file may be anything.
//
// Threading: pure functions, any thread.
// Ownership: the result is a view into `image` and lives as long as its bytes do.
// Errors: none are raised. A file that is malformed, cut short or hostile has no such section.
// Order: architectures, load commands and section records are taken as they lie in the file; the
// first match wins.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

/// The bytes of section `section` of segment `segment`, or nothing.
///
/// Names are compared as the format holds them: 16 bytes, ended by the first NUL. The segment's
/// name is the one in the section record itself. Records with a size or file offset of 0 have no
/// bytes in the file and are passed over.
///
/// In a fat file the slices for Intel and PowerPC processors are searched in order, those for ARM
/// never. A thin image is searched whatever its processor. Images of the other byte order have no
/// sections here.
///
/// Takes time in proportion to the image's length at most: a file that makes the search read the
/// same places over and over (slices that contain themselves, commands that overlap) has no such
/// section.
std::optional<std::span<const std::uint8_t>> findMachOSection(std::span<const std::uint8_t> image,
                                                              std::string_view segment,
                                                              std::string_view section);
