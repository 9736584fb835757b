// SPDX-License-Identifier: Apache-2.0

// What the guest's programs share: arguments, files, errors.
//
// Errors: what goes wrong is thrown, and run() prints it in one line.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/services/FileDescriptor.h"

namespace vm {

/// The exit status: 0, 1 if `main` throws, 2 if it throws UsageError, whose text is `usage`.
int run(const std::function<void(const std::vector<std::string>& arguments)>& main, int argc,
        char** argv, std::string_view usage);

struct UsageError {};

/// Throws UsageError if the text is not a decimal number.
[[nodiscard]] std::int64_t number(std::string_view text);
[[nodiscard]] std::vector<std::string> words(const std::string& line);
/// Two hexadecimal digits a byte.
[[nodiscard]] std::string hex(std::span<const std::uint8_t> bytes);

/// Throws std::system_error, with `path` in its text.
[[nodiscard]] platform::FileDescriptor openFile(const std::string& path, int flags);
[[noreturn]] void throwErrno(const std::string& what);

/// Prints the line at once.
void say(const std::string& line);

}  // namespace vm
