// SPDX-License-Identifier: Apache-2.0

// Text from outside that is to stand in a question to a person.
//
// The person decides by what the dialog shows. So the name that a device or an application gives
// itself must not be able to look like part of the question, to end the quotation that it stands
// in, to hide what follows, or to mean anything to polkit, which replaces "$(key)" in a message and
// drops everything after a "$(" without end.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform::system {

/// One printable line without quotation marks, tags or placeholders, cut at `maximumCharacters`.
[[nodiscard]] std::string promptText(std::string_view text, std::size_t maximumCharacters = 80);

/// The same in quotation marks: “text”.
[[nodiscard]] std::string quotedPromptText(std::string_view text,
                                           std::size_t maximumCharacters = 80);

/// Takes the meaning from each "$(". For a finished message: the last character of one part and
/// the first of the next may make one.
[[nodiscard]] std::string withoutPlaceholders(std::string_view message);

}  // namespace platform::system
