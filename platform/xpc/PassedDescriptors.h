// Listening sockets, and directories, that whoever started this process handed to it (LISTEN_PID,
// LISTEN_FDS, LISTEN_FDNAMES).
//
// Threading: any thread. Ownership: a descriptor is handed out once; the caller owns it,
// close-on-exec and non-blocking. Errors: -1 with errno: ENOENT none of that name, EINVAL an
// environment that makes no sense, ENOTSOCK or EOPNOTSUPP a descriptor that is no listening Unix
// stream socket, EBUSY handed out already. Order: the first of several equal names.
#pragma once

#include <string_view>

namespace platform::xpc {

int takePassedDescriptor(std::string_view service);
/// An open directory; ENOTDIR when it is none.
int takePassedDirectory(std::string_view name);
/// Whether `descriptor` is a listening Unix stream socket; errno says why not.
bool isListeningStreamSocket(int descriptor);
/// Sets close-on-exec and non-blocking.
bool prepareDescriptor(int descriptor);

}  // namespace platform::xpc
