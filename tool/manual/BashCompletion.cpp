// SPDX-License-Identifier: Apache-2.0

#include "tool/manual/BashCompletion.h"

#include <CLI/CLI.hpp>

#include "tool/manual/ManualPage.h"

namespace tool {

namespace {

constexpr std::string_view kHead = R"(# SPDX-License-Identifier: Apache-2.0
# Completion of @NAME@ for bash, generated from the command's own tables.

# Sets what can follow a verb, which "verb nested" names, too: its options, those of them that take a file's name, those that
# take something else, its verbs, and whether it has arguments.
_@NAME@_table() {
  options="" files="" values="" verbs="" arguments=""
  case "$1" in
)";

constexpr std::string_view kTail = R"(  esac
}

_@NAME@() {
  local word="${COMP_WORDS[COMP_CWORD]}" previous="" verb="" options files values verbs arguments i
  COMPREPLY=()
  _@NAME@_table ""
  for ((i = 1; i < COMP_CWORD; i++)); do
    previous="${COMP_WORDS[i]}"
    if [[ " $files $values " == *" $previous "* ]]; then
      ((++i < COMP_CWORD)) && previous=""
    elif [[ " $verbs " == *" $previous "* ]]; then
      verb="${verb:+$verb }$previous"
      _@NAME@_table "$verb"
    fi
  done
  if [[ -n $previous && " $files " == *" $previous "* ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  elif [[ -n $previous && " $values " == *" $previous "* ]]; then
    COMPREPLY=()
  elif [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
  else
    [[ $verb != help ]] || _@NAME@_table ""
    mapfile -t COMPREPLY < <(compgen -W "$verbs" -- "$word"; [[ -z $arguments ]] || compgen -f -- "$word")
  fi
}
complete -o filenames -F _@NAME@ @NAME@
)";

void add(std::string& words, const std::string& word) {
  words += (words.empty() ? "" : " ") + word;
}

struct Words {
  std::string options;
  std::string files;
  std::string values;
};

void addOption(Words& words, const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const bool isFile = type.find("FILE") != std::string::npos || type.starts_with("DIR");
  const auto addName = [&](const std::string& name) {
    add(words.options, name);
    if (option.get_items_expected_max() > 0) add(isFile ? words.files : words.values, name);
  };
  for (const std::string& name : option.get_snames()) addName("-" + name);
  for (const std::string& name : option.get_lnames()) addName("--" + name);
}

/// The options of the command are those of its verbs, too.
void addTable(std::string& text, const CLI::App& app, const CLI::App& at, const std::string& path) {
  Words words;
  bool hasArguments = false;
  for (const CLI::App* each : {&at, &app}) {
    for (const CLI::Option* option : each->get_options()) {
      if (option->get_group().empty() || (each == &app && option == app.get_help_ptr())) continue;
      addOption(words, *option);
      hasArguments = hasArguments || (each == &at && option->get_positional());
    }
    if (&at == &app) break;
  }
  std::string verbs;
  for (const CLI::App* verb : shownVerbs(at)) add(verbs, verb->get_name());
  text += "    \"" + path + "\")\n      options=\"" + words.options + "\"\n";
  if (!words.files.empty()) text += "      files=\"" + words.files + "\"\n";
  if (!words.values.empty()) text += "      values=\"" + words.values + "\"\n";
  if (!verbs.empty()) text += "      verbs=\"" + verbs + "\"\n";
  if (hasArguments) text += "      arguments=yes\n";
  text += "      ;;\n";
  for (const CLI::App* verb : shownVerbs(at))
    addTable(text, app, *verb, path.empty() ? verb->get_name() : path + " " + verb->get_name());
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
  std::string text(kHead);
  addTable(text, app, app, "");
  text += kTail;
  constexpr std::string_view kName = "@NAME@";
  for (auto at = text.find(kName); at != std::string::npos; at = text.find(kName, at))
    text.replace(at, kName.size(), app.get_name());
  return text;
}

}  // namespace tool
