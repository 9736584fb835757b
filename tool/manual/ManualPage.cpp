// SPDX-License-Identifier: Apache-2.0

#include "tool/manual/ManualPage.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <sstream>

namespace tool {

namespace {

std::string bold(const std::string& text) {
  return "\\fB" + asRoff(text) + "\\fR";
}

std::string italic(const std::string& text) {
  return "\\fI" + asRoff(text) + "\\fR";
}

bool takesValue(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

/// What a person sees of an option: not those without a group, which are hidden.
std::vector<const CLI::Option*> shownOptions(const CLI::App& app, bool positional) {
  return app.get_options([&](const CLI::Option* option) {
    return option->get_positional() == positional && !option->get_group().empty() &&
           option != app.get_help_ptr();
  });
}

bool mayRepeat(const CLI::Option& option) {
  return option.get_items_expected_max() > 1;
}

std::string argumentOf(const CLI::Option& positional) {
  const std::string name = italic(positional.get_name(true)) + (mayRepeat(positional) ? "..." : "");
  return positional.get_required() ? name : "[" + name + "]";
}

/// wlhid devices add [OPTION...] FILE
std::string synopsisOf(const std::string& command, const CLI::App& verb) {
  std::string line = bold(command);
  if (!shownOptions(verb, false).empty()) line += " [" + italic("OPTION") + "...]";
  for (const CLI::Option* each : shownOptions(verb, true)) line += " " + argumentOf(*each);
  return line + "\n";
}

std::string namesOf(const CLI::Option& option) {
  if (option.get_positional()) return italic(option.get_name(true));
  std::string names;
  for (const std::string& name : option.get_snames())
    names += (names.empty() ? "" : ", ") + bold("-" + name);
  for (const std::string& name : option.get_lnames())
    names += (names.empty() ? "" : ", ") + bold("--" + name);
  if (takesValue(option)) names += " " + italic(option.get_type_name());
  return names;
}

/// Lines that were broken to fit the help become one paragraph; an empty line ends one.
std::string paragraphs(const std::string& text) {
  std::istringstream lines(text);
  std::string all;
  bool isBetween = false;
  for (std::string line; std::getline(lines, line); isBetween = line.empty()) {
    if (line.empty()) continue;
    if (isBetween && !all.empty()) all += ".PP\n";
    all += asRoff(line) + "\n";
  }
  return all;
}

/// A sentence, even where the help has a phrase.
std::string sentence(const std::string& text) {
  const bool isWhole = text.empty() || text.ends_with('.') || text.ends_with(':');
  return paragraphs(isWhole ? text : text + ".");
}

std::string listOf(const std::vector<const CLI::Option*>& options) {
  std::string list;
  for (const CLI::Option* each : options)
    list += ".TP\n" + namesOf(*each) + "\n" + sentence(each->get_description());
  return list;
}

/// A footer is paragraphs, then examples.
struct Footer {
  std::string text;
  std::vector<std::string> examples;
};

Footer footerOf(const CLI::App& verb) {
  Footer footer;
  std::istringstream lines(verb.get_footer());
  bool isExample = false;
  for (std::string line; std::getline(lines, line);) {
    if (line == "Example:" || line == "Examples:")
      isExample = true;
    else if (isExample)
      footer.examples.push_back(line.substr(std::min(line.find_first_not_of(' '), line.size())));
    else
      footer.text += line + "\n";
  }
  return footer;
}

std::string examplesOf(const std::vector<std::string>& examples) {
  std::string text = ".nf\n";
  for (const std::string& each : examples) text += asRoff(each) + "\n";
  return text + ".fi\n";
}

std::string nestedVerb(const std::string& command, const CLI::App& verb) {
  const Footer footer = footerOf(verb);
  std::string text = ".SS " + asRoff(command) + "\n" + synopsisOf(command, verb) + ".PP\n" +
                     sentence(verb.get_description());
  if (const std::string more = paragraphs(footer.text); !more.empty()) text += ".PP\n" + more;
  text += listOf(shownOptions(verb, true)) + listOf(shownOptions(verb, false));
  if (!footer.examples.empty()) text += ".PP\nExample:\n.PP\n" + examplesOf(footer.examples);
  return text;
}

std::string section(const std::string& title, const std::string& content) {
  return content.empty() ? std::string() : ".SH " + title + "\n" + content;
}

std::string upperCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

std::string startingSmall(std::string text) {
  if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

std::string pageName(const CLI::App& app, const CLI::App& verb) {
  return app.get_name() + "-" + verb.get_name();
}

/// As one page names another.
std::string reference(const std::string& page) {
  return ".BR " + asRoff(page) + " (1)";
}

std::string head(const CLI::App& app, const CLI::App& verb, const ManualEdition& edition) {
  const std::string name = pageName(app, verb);
  return ".\\\" SPDX-License-Identifier: Apache-2.0\n.TH " + upperCase(name) + " 1 " +
         edition.date + " \"WLHIDAccess " + edition.version + "\" \"User Commands\"\n.SH NAME\n" +
         asRoff(name) + " \\- " + asRoff(startingSmall(verb.get_description())) + "\n";
}

std::string synopses(const std::string& command, const CLI::App& verb) {
  std::string text = synopsisOf(command, verb);
  for (const CLI::App* nested : shownVerbs(verb))
    text += ".br\n" + synopsisOf(command + " " + nested->get_name(), *nested);
  return text;
}

void replace(std::string& text, std::string_view from, const std::string& to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

}  // namespace

std::vector<const CLI::App*> shownVerbs(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* verb) { return !verb->get_group().empty(); });
}

std::string asRoff(std::string_view text) {
  std::string roff;
  if (text.starts_with('.') || text.starts_with('\'')) roff = "\\&";
  for (const char c : text) {
    if (c == '\\')
      roff += "\\e";
    else if (c == '-')
      roff += "\\-";
    else
      roff += c;
  }
  return roff;
}

std::string commandPage(const CLI::App& app, std::string pageTemplate,
                        const ManualEdition& edition) {
  std::string verbs;
  for (const CLI::App* verb : shownVerbs(app))
    verbs += ".TP\n" + reference(pageName(app, *verb)) + "\n" + sentence(verb->get_description());
  std::string options = listOf(shownOptions(app, false));
  if (const CLI::Option* help = app.get_help_ptr()) options += listOf({help});
  verbs.pop_back();
  options.pop_back();  // the template has the end of the line
  replace(pageTemplate, "@DATE@", edition.date);
  replace(pageTemplate, "@VERSION@", edition.version);
  replace(pageTemplate, "@VERBS@", verbs);
  replace(pageTemplate, "@OPTIONS@", options);
  return pageTemplate;
}

std::string verbPage(const CLI::App& app, const CLI::App& verb, const ManualEdition& edition) {
  const std::string command = app.get_name() + " " + verb.get_name();
  const Footer footer = footerOf(verb);
  std::string nested;
  for (const CLI::App* each : shownVerbs(verb))
    nested += nestedVerb(command + " " + each->get_name(), *each);
  std::string description = sentence(verb.get_description());
  if (const std::string more = paragraphs(footer.text); !more.empty())
    description += ".PP\n" + more;
  return head(app, verb, edition) + section("SYNOPSIS", synopses(command, verb)) +
         section("DESCRIPTION", description) +
         section("ARGUMENTS", listOf(shownOptions(verb, true))) +
         section("OPTIONS", listOf(shownOptions(verb, false))) + section("SUBCOMMANDS", nested) +
         section("EXAMPLES", footer.examples.empty() ? "" : examplesOf(footer.examples)) +
         section("SEE ALSO", reference(app.get_name()) + ",\nfor the root and the exit status\n");
}

}  // namespace tool
