// SPDX-License-Identifier: Apache-2.0

// The program in a helper image, as it is run.
//
// Threading: one thread.
// Errors: ServiceError.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/services/FileDescriptor.h"

namespace jobd {

/// The PATH of a job, as an entry of its environment.
inline constexpr std::string_view kJobPath =
    "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

/// The program as an anonymous file that can no longer be changed. `name` is for messages.
[[nodiscard]] platform::FileDescriptor sealedProgram(const std::string& name,
                                                     std::span<const std::uint8_t> program);

/// Gives up what a job does not need and could do harm with: core files, which would contain what
/// was typed, and privileges from set-user-ID programs and the like.
void giveUpRights();

/// Becomes the program, with default signal handling.
[[noreturn]] void runProgram(int program, std::vector<std::string> arguments,
                             std::vector<std::string> environment);

}  // namespace jobd
