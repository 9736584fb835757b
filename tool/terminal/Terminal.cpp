// SPDX-License-Identifier: Apache-2.0

#include "tool/terminal/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "platform/foundation/PrintableText.h"
#include "tool/command/Command.h"
#include "tool/terminal/Output.h"

namespace tool {

namespace {

constexpr std::size_t kUsualColumns = 80;
constexpr std::string_view kClearLine = "\r\x1b[K";

}  // namespace

bool canMove(int descriptor) {
  const char* const kind = ::secure_getenv("TERM");
  return ::isatty(descriptor) == 1 && kind != nullptr && *kind != '\0' &&
         std::string_view(kind) != "dumb";
}

bool showsColours(int descriptor) {
  const char* const unwanted = ::secure_getenv("NO_COLOR");
  return (unwanted == nullptr || *unwanted == '\0') && canMove(descriptor);
}

std::size_t columnsOfTerminal(int descriptor) {
  if (::isatty(descriptor) != 1) return 0;
  winsize size{};
  if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return size.ws_col;
}

void printBytes(std::string_view bytes) {
  if (::isatty(STDOUT_FILENO) != 1) return print(bytes);
  std::string text = platform::printableText(bytes);
  if (!text.empty() && text.back() != '\n') text += '\n';
  print(text);
}

StatusLine::StatusLine() : isShown_(canMove(STDERR_FILENO)) {}

StatusLine::~StatusLine() {
  if (!isEmpty_) Output(STDERR_FILENO).write(kClearLine);
}

void StatusLine::show(std::string_view text) {
  if (!isShown_) return;
  isEmpty_ = false;
  // Writing to the last column would wrap the line.
  const std::string line = platform::printableLine(text, columnsOfTerminal(STDERR_FILENO) - 1);
  Output(STDERR_FILENO).write(std::string(kClearLine) + line);
}

void Progress::step(std::string_view what) {
  ++done_;
  line_.show("[" + std::to_string(std::min(done_, steps_)) + "/" + std::to_string(steps_) + "] " +
             platform::printableLine(what));
}

}  // namespace tool
