// SPDX-License-Identifier: Apache-2.0

#include "tool/command/Invocation.h"

#include <algorithm>

#include "platform/foundation/PrintableText.h"
#include "platform/services/SystemRoot.h"

namespace tool {

namespace {

struct Invocation {
  std::string program = "wlhid";
  bool rootIsNamed = false;
};

Invocation& invocation() {
  static Invocation typed;
  return typed;
}

bool isPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("/._-+:,@%=").find(c) != std::string_view::npos;
}

std::string inQuotes(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'')
      quoted += "'\\''";
    else
      quoted += c;
  }
  return quoted + "'";
}

/// The text as a printf command with octal escapes, for bytes that are not printable.
std::string inEscapes(std::string_view text) {
  std::string escaped = "\"$(printf '";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    escaped += '\\';
    escaped += static_cast<char>('0' + (byte >> 6));
    escaped += static_cast<char>('0' + (byte >> 3 & 7));
    escaped += static_cast<char>('0' + (byte & 7));
  }
  return escaped + "')\"";
}

std::string joined(std::string command, const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) command += " " + shellWord(argument);
  return command;
}

}  // namespace

void setInvocation(std::string program, bool rootIsNamed) {
  if (program.empty()) program = "wlhid";
  invocation() = {std::move(program), rootIsNamed};
}

std::string shellWord(std::string_view text) {
  if (!text.empty() && std::ranges::all_of(text, isPlain)) return std::string(text);
  if (platform::printableLine(text, text.size()) != text) return inEscapes(text);
  return inQuotes(text);
}

std::string commandLine(const std::vector<std::string>& arguments) {
  std::string command = shellWord(invocation().program);
  if (invocation().rootIsNamed)
    command += " --root " + shellWord(platform::SystemRoot::current().path().string());
  return joined(std::move(command), arguments);
}

std::string commandLineOnOwnRoot(const std::vector<std::string>& arguments) {
  return joined("env -u WLHID_ROOT " + shellWord(invocation().program), arguments);
}

}  // namespace tool
