// SPDX-License-Identifier: Apache-2.0

#include "router/RouterLog.h"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

namespace router {

void logToStandardError(const platform::LogLine& line) {
  const std::string text = line.text() + '\n';
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t count = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return;  // there is nowhere left to report it
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace router
