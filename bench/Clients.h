// The process in which a thousand clients are made, apart from the one that measured other things
// before.
//
// Threading, Ownership, Order: none. Errors: exit status 1 and a line on standard error.
#pragma once

namespace bench {

/// Prints resident KiB before, after half and after all clients, and exits.
int runClientsRole(const char* endpoint);

}  // namespace bench
