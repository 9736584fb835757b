// Reading a text file piece by piece, with the outcome of reading it whole.
//
// Threading: any thread; synchronous. Ownership: a piece is valid while `take` runs.
// Errors: in NSCocoaErrorDomain: 260 no such file, 257 no permission, 261 not UTF-8, 256 anything
//   else (a directory or device in the file's place, a failed read). The path is in the user info
//   under NSFilePathErrorKey, the system's own error, where there is one, under
//   NSUnderlyingErrorKey.
// Order: pieces come in the file's order.
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

/// Hands the UTF-8 text of the regular file at `url` to `take`. A byte order mark is text like any
/// other, and a character may lie across the border of two pieces. Null when all of it was read and
/// is UTF-8. With an error the pieces so far stand for nothing: the fault may be in the last byte.
///
/// Goes through the foundation provider (FoundationProvider.h), so a scripted platform can answer.
[[nodiscard]] std::shared_ptr<NSError> readUTF8TextFile(
    const std::shared_ptr<NSURL>& url, const std::function<void(std::string_view piece)>& take);

}  // namespace platform
