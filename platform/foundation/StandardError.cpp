// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/StandardError.h"

#include <unistd.h>

#include <cerrno>
#include <string>

namespace platform {

void writeLineToStandardError(std::string_view line) {
  const int savedError = errno;
  std::string text;
  text.reserve(line.size() + 1);
  text.append(line).push_back('\n');
  for (std::string_view rest = text; !rest.empty();) {
    const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (written > 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      break;
    }
  }
  errno = savedError;
}

}  // namespace platform
