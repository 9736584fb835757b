#include "tool/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "tool/Output.h"

namespace tool {

namespace {

constexpr std::size_t kUsualColumns = 80;
constexpr std::string_view kClearLine = "\r\x1b[K";

bool isTerminalWithMovement(int descriptor) {
  const char* const kind = ::secure_getenv("TERM");
  return ::isatty(descriptor) == 1 && kind != nullptr && *kind != '\0' &&
         std::string_view(kind) != "dumb";
}

std::size_t columnsOf(int descriptor) {
  winsize size{};
  if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return size.ws_col;
}

/// U+0080 to U+009F, which some terminals obey.
bool isSecondControlCharacter(std::string_view text, std::size_t at) {
  return text[at] == '\xc2' && at + 1 < text.size() &&
         static_cast<unsigned char>(text[at + 1]) < 0xa0;
}

}  // namespace

bool showsColours(int descriptor) {
  const char* const unwanted = ::secure_getenv("NO_COLOR");
  return (unwanted == nullptr || *unwanted == '\0') && isTerminalWithMovement(descriptor);
}

std::string safeForTerminal(std::string_view text) {
  std::string safe;
  safe.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (isSecondControlCharacter(text, at)) {
      safe += '?';
      ++at;
    } else if ((byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7f) {
      safe += '?';
    } else {
      safe += text[at];
    }
  }
  return safe;
}

Progress::Progress(int steps) : steps_(steps), shown_(isTerminalWithMovement(STDERR_FILENO)) {}

Progress::~Progress() {
  if (shown_ && done_ > 0) Output(STDERR_FILENO).write(kClearLine);
}

void Progress::step(std::string_view what) {
  ++done_;
  if (!shown_) return;
  std::string line = "[" + std::to_string(std::min(done_, steps_)) + "/" + std::to_string(steps_) +
                     "] " + std::string(what);
  // In the last column a terminal would begin a new line.
  line.resize(std::min(line.size(), columnsOf(STDERR_FILENO) - 1));
  Output(STDERR_FILENO).write(std::string(kClearLine) + line);
}

}  // namespace tool
