// Text from elsewhere, made fit to be read.
//
// A device's name, a peer's hello, a line of a log: whoever wrote it may have put escape sequences,
// line ends or invisible characters into it, which a terminal obeys and a log takes for entries of
// its own. Every text goes through here before it reaches a log or a terminal.
//
// What is acted upon instead of shown becomes a visible escape: control characters (C0, DEL, C1)
// and bytes that are not UTF-8 as "\x1b", line and paragraph separators, bidirectional controls and
// other format characters as "\u202e". A backslash stays one: the result is for eyes, and does not
// say whether an escape was there before.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

/// One line: line feeds are escaped too, a tab becomes a blank. A text of more than
/// `maximumCharacters` characters keeps the first of them and ends with "…" as the last.
[[nodiscard]] std::string printableLine(std::string_view text,
                                        std::size_t maximumCharacters = 1000);

/// Several lines: line feeds and tabs stay. As long as it is.
[[nodiscard]] std::string printableText(std::string_view text);

}  // namespace platform
