// SPDX-License-Identifier: Apache-2.0

// The classic form of a log entry, in which the system's log is read again.
//
// Threading: any thread.
#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

namespace platform {

/// Longer text is cut.
inline constexpr std::size_t kMaximumLogEntryCharacters = 2052;

/// "Nov 21 03:12:45 host name[345]: text\n", with the text made one printable line; a day below 10
/// has two spaces before it.
[[nodiscard]] std::string logEntry(const std::tm& time, std::string_view host,
                                   std::string_view name, long process, std::string_view text);

/// This computer's name as one printable word.
[[nodiscard]] std::string logHostName();

}  // namespace platform
