// SPDX-License-Identifier: Apache-2.0

// Manual pages from the parser's tables, so that a verb or an option has its place in the manual
// from the moment it exists. What a person writes for a verb is its description and its footer:
// paragraphs, then "Example:" or "Examples:" with indented command lines.
//
// Threading: any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace tool {

/// What the head of each page says.
struct ManualEdition {
  std::string date;  ///< 2026-11-22
  std::string version;
};

/// The verbs that a person sees, in their order in the help.
[[nodiscard]] std::vector<const CLI::App*> shownVerbs(const CLI::App& app);

/// wlhid(1): the template with @DATE@, @VERSION@, @VERBS@ and @OPTIONS@ filled in.
[[nodiscard]] std::string commandPage(const CLI::App& app, std::string pageTemplate,
                                      const ManualEdition& edition);

/// wlhid-VERB(1), nested verbs included.
[[nodiscard]] std::string verbPage(const CLI::App& app, const CLI::App& verb,
                                   const ManualEdition& edition);

/// Text in which nothing is a request or an escape to the formatter.
[[nodiscard]] std::string asRoff(std::string_view text);

}  // namespace tool
