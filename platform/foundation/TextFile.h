// SPDX-License-Identifier: Apache-2.0

// Reads a text file piece by piece, with the errors of reading it whole.
//
// Threading: any thread; synchronous.
// Ownership: a piece is valid while `take` runs.
// Errors: in NSCocoaErrorDomain: 260 no such file, 257 no permission, 261 not UTF-8, 256 anything
//   else (a directory or device instead of a file, a failed read). The user info has the path under
//   NSFilePathErrorKey and the system's error, if any, under NSUnderlyingErrorKey.
// Order: pieces come in file order.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/foundation/NSError.h"
#include "platform/foundation/NSURL.h"

namespace platform {

inline constexpr std::int64_t NSFileReadUnknownError = 256;
inline constexpr std::int64_t NSFileReadNoPermissionError = 257;
inline constexpr std::int64_t NSFileReadNoSuchFileError = 260;
inline constexpr std::int64_t NSFileReadInapplicableStringEncodingError = 261;
inline constexpr std::string_view NSFilePathErrorKey = "NSFilePath";
inline constexpr std::string_view NSUnderlyingErrorKey = "NSUnderlyingError";

/// Passes the UTF-8 text of the regular file at `url` to `take`. A byte order mark is passed like
/// other text, and a character may be split between two pieces. Null if all of it was read and is
/// UTF-8. On error, discard the pieces so far: the fault may be in the last byte.
///
/// Goes through the foundation provider (FoundationProvider.h), so a scripted platform can answer.
[[nodiscard]] std::shared_ptr<NSError> readUTF8TextFile(
    const std::shared_ptr<NSURL>& url, const std::function<void(std::string_view piece)>& take);

}  // namespace platform
