// SPDX-License-Identifier: Apache-2.0

// Texts for errors that were created without one: what happened, why, what to do.
//
// Threading: any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The text for the codes of this system's own domains, of authorization, of connections and of
/// system calls; nothing for other codes.
[[nodiscard]] std::optional<std::string> textOfError(std::string_view domain, std::int64_t code);

}  // namespace platform
