// SPDX-License-Identifier: Apache-2.0

// What the pages that this program writes have in common: each is one file, which a browser shows
// without a network, light or dark as the reader has it.
//
// Threading: any thread.
#pragma once

#include <string>
#include <string_view>

namespace tool {

/// Everything up to the body: title, style, and a content security policy that allows nothing but
/// that style and the script with this hash, or no script if it is empty. `title` is plain text.
[[nodiscard]] std::string documentHead(std::string_view title, std::string_view scriptHash = {});

}  // namespace tool
