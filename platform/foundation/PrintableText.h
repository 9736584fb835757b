// SPDX-License-Identifier: Apache-2.0

// Makes untrusted text safe to display.
//
// A device's name, a peer's hello or a log line may contain escape sequences, line ends or
// invisible characters, which a terminal obeys and which look like separate entries in a log. All
// text passes through here before it reaches a log or a terminal.
//
// Characters that have an effect instead of being shown become visible escapes: control characters
// (C0, DEL, C1) and bytes that are not UTF-8 like "\x1b"; line and paragraph separators,
// bidirectional controls and other format characters like "\u202e". A backslash is not escaped: the
// result is for reading and does not distinguish an escape from the same text in the input.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/foundation/Export.h"

namespace platform {

/// One line: line feeds are escaped too, and a tab becomes a blank. A text of more than
/// `maximumCharacters` characters is truncated, with "…" as the last character.
[[nodiscard]] WLHID_EXPORT std::string printableLine(std::string_view text,
                                                     std::size_t maximumCharacters = 1000);

/// Several lines: line feeds and tabs stay. The length is not limited.
[[nodiscard]] WLHID_EXPORT std::string printableText(std::string_view text);

}  // namespace platform
