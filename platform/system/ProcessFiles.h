// SPDX-License-Identifier: Apache-2.0

// What the files in /proc/PID say.
//
// A process chooses its own name, which stands in the middle of /proc/PID/stat and may contain
// blanks, parentheses and line feeds.
//
// Threading: any thread.
// Errors: nothing, if the text is not what the kernel writes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform::system {

/// From /proc/PID/stat.
[[nodiscard]] std::optional<std::uint64_t> startTimeInStat(std::string_view stat);
/// The effective user, from /proc/PID/status.
[[nodiscard]] std::optional<uid_t> effectiveUserInStatus(std::string_view status);
/// The first argument, from /proc/PID/cmdline; empty if there is none.
[[nodiscard]] std::string_view firstArgument(std::string_view commandLine);
/// The start of a file in an open directory: at most `limit` bytes. Empty if it cannot be read.
[[nodiscard]] std::string readStart(int directory, const char* name, std::size_t limit);

}  // namespace platform::system
