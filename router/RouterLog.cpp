#include "router/RouterLog.h"

#include <unistd.h>

#include <cerrno>
#include <string>

namespace router {

void logToStandardError(std::string_view line) {
  std::string text(line);
  // Names of devices and files come from outside; a line stays one line.
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = '?';
  }
  text += '\n';
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t count = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return;  // there is nobody left to tell
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace router
