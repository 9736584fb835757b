#include "router/RouterLog.h"

#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/foundation/PrintableText.h"

namespace router {

void logToStandardError(std::string_view line) {
  // Names of devices and files come from outside.
  const std::string text = platform::printableLine(line) + '\n';
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t count = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return;  // there is nobody left to tell
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace router
