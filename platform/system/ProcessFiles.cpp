// SPDX-License-Identifier: Apache-2.0

#include "platform/system/ProcessFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>

#include "platform/services/FileDescriptor.h"

namespace platform::system {
namespace {

template <class Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// Removes the text up to the next separator, and returns it.
std::string_view takeUntil(std::string_view& text, char separator) {
  const std::size_t end = text.find(separator);
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(end == text.npos ? text.size() : end + 1);
  return taken;
}

}  // namespace

std::optional<std::uint64_t> startTimeInStat(std::string_view stat) {
  constexpr int kFieldAfterName = 3;
  constexpr int kStartTime = 22;
  const std::size_t endOfName = stat.rfind(") ");
  if (endOfName == stat.npos) return std::nullopt;
  stat.remove_prefix(endOfName + 2);
  for (int field = kFieldAfterName; field < kStartTime; ++field) takeUntil(stat, ' ');
  return numberIn<std::uint64_t>(takeUntil(stat, ' '));
}

std::optional<uid_t> effectiveUserInStatus(std::string_view status) {
  constexpr std::string_view kUsers = "Uid:\t";
  while (!status.empty()) {
    std::string_view line = takeUntil(status, '\n');
    if (!line.starts_with(kUsers)) continue;
    line.remove_prefix(kUsers.size());
    takeUntil(line, '\t');  // the real user
    return numberIn<uid_t>(takeUntil(line, '\t'));
  }
  return std::nullopt;
}

std::string_view firstArgument(std::string_view commandLine) {
  return takeUntil(commandLine, '\0');
}

std::string readStart(int directory, const char* name, std::size_t limit) {
  const FileDescriptor file(::openat(directory, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  std::string text;
  std::array<char, 4096> buffer{};
  while (file && text.size() < limit) {
    const std::size_t room = std::min(buffer.size(), limit - text.size());
    const ssize_t got = ::read(file.get(), buffer.data(), room);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {};
    if (got == 0) break;
    text.append(buffer.data(), static_cast<std::size_t>(got));
  }
  return text;
}

}  // namespace platform::system
