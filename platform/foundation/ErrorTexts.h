// The words for errors that are made without any: what happened, why, what to do.
//
// Threading: any thread.
// Ownership: the texts last for ever.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// For the codes of this system's own domains, of authorization, of connections and of the
/// system's calls; nothing for any other.
[[nodiscard]] std::optional<std::string> textOfError(std::string_view domain, std::int64_t code);

}  // namespace platform
