// SPDX-License-Identifier: Apache-2.0

#include "platform/scripted/Describe.h"

#include <type_traits>

namespace platform {

namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\n' || c == '\t';
}

std::string describeValue(const XPCValue& value) {
  return std::visit(
      [](const auto& held) {
        if constexpr (std::is_integral_v<std::decay_t<decltype(held)>>)
          return std::to_string(held);
        else
          return describe(held);
      },
      value);
}

}  // namespace

std::string describe(std::string_view text) {
  std::string line;
  for (const char c : text) {
    if (!isBlank(c))
      line += c;
    else if (!line.empty() && line.back() != ' ')
      line += ' ';
  }
  if (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

std::string describe(const std::shared_ptr<NSObject>& object) {
  return object ? describe(std::string_view(object->description())) : "nil";
}

std::string describeInterface(const std::shared_ptr<NSXPCInterface>& interface) {
  return interface ? std::string(interface->protocol().name) : "nil";
}

std::vector<std::string> describeValues(const XPCValues& values) {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < values.count; ++i)
    texts.push_back(describeValue(values.values.at(i)));
  return texts;
}

std::string describeClasses(const NSClassSet& classes) {
  std::string line;
  for (const NSClass* c : classes) line += (line.empty() ? "" : ", ") + std::string(c->name);
  return "(" + line + ")";
}

}  // namespace platform
