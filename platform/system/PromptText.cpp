// SPDX-License-Identifier: Apache-2.0

#include "platform/system/PromptText.h"

#include <algorithm>
#include <array>

#include "platform/foundation/PrintableText.h"

namespace platform::system {
namespace {

struct Replacement {
  std::string_view what;
  std::string_view with;
};

/// Whatever can be taken for the end of a quotation, and what an agent that understands tags would
/// take for one.
constexpr std::array kReplacements{
    Replacement{"\"", "'"}, Replacement{"“", "'"},  Replacement{"”", "'"},   Replacement{"„", "'"},
    Replacement{"‟", "'"},  Replacement{"«", "'"},  Replacement{"»", "'"},   Replacement{"″", "'"},
    Replacement{"‶", "'"},  Replacement{"〃", "'"}, Replacement{"❝", "'"},   Replacement{"❞", "'"},
    Replacement{"〝", "'"}, Replacement{"〞", "'"}, Replacement{"〟", "'"},  Replacement{"＂", "'"},
    Replacement{"<", "‹"},  Replacement{">", "›"},  Replacement{"$(", "$ ("}};

std::string replaced(std::string_view text, const Replacement* first, const Replacement* last) {
  std::string result;
  while (!text.empty()) {
    const auto* const found = std::find_if(
        first, last, [&](const Replacement& each) { return text.starts_with(each.what); });
    result += found == last ? text.substr(0, 1) : found->with;
    text.remove_prefix(found == last ? 1 : found->what.size());
  }
  return result;
}

}  // namespace

std::string promptText(std::string_view text, std::size_t maximumCharacters) {
  return replaced(printableLine(text, maximumCharacters), kReplacements.begin(),
                  kReplacements.end());
}

std::string quotedPromptText(std::string_view text, std::size_t maximumCharacters) {
  return "“" + promptText(text, maximumCharacters) + "”";
}

std::string withoutPlaceholders(std::string_view message) {
  return replaced(message, kReplacements.end() - 1, kReplacements.end());
}

}  // namespace platform::system
