// SPDX-License-Identifier: Apache-2.0

// Listening sockets and directories that the process that started this one passed to it
// (LISTEN_PID, LISTEN_FDS, LISTEN_FDNAMES).
//
// Threading: any thread.
// Ownership: a descriptor is handed out once; the caller owns it, close-on-exec and non-blocking.
// Errors: -1 with errno: ENOENT no descriptor of that name, EINVAL malformed variables, ENOTSOCK or
//   EOPNOTSUPP not a listening Unix stream socket, EBUSY already handed out.
// Order: the first of several equal names.
#pragma once

#include <string_view>

namespace platform::xpc {

int takePassedDescriptor(std::string_view service);
/// An open directory; ENOTDIR if the descriptor is not one.
int takePassedDirectory(std::string_view name);
/// Whether `descriptor` is a listening Unix stream socket; if not, errno says why.
bool isListeningStreamSocket(int descriptor);
/// Sets close-on-exec and non-blocking.
bool prepareDescriptor(int descriptor);

}  // namespace platform::xpc
