// SPDX-License-Identifier: Apache-2.0

// Writes the manual pages and the completion of the command at build time:
//
//   wlhid-manual TEMPLATE DATE DIRECTORY
//
// makes DIRECTORY/man1/wlhid.1, DIRECTORY/man1/wlhid-VERB.1 for each verb, and
// DIRECTORY/wlhid.bash-completion.
#include <CLI/CLI.hpp>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "tool/command/Command.h"
#include "tool/command/CommandLine.h"
#include "tool/manual/BashCompletion.h"
#include "tool/manual/ManualPage.h"

namespace {

std::string contentOf(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write(const std::filesystem::path& path, const std::string& text) {
  std::ofstream out(path);
  out << text;
  if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
}

void writeAll(const std::string& pageTemplate, const tool::ManualEdition& edition,
              const std::filesystem::path& directory) {
  CLI::App app;
  std::string root;
  tool::Action chosen;
  tool::describeCommand(app, root, chosen);
  const std::filesystem::path pages = directory / "man1";
  std::filesystem::create_directories(pages);
  write(pages / "wlhid.1", tool::commandPage(app, pageTemplate, edition));
  for (const CLI::App* verb : tool::shownVerbs(app))
    write(pages / ("wlhid-" + verb->get_name() + ".1"), tool::verbPage(app, *verb, edition));
  write(directory / "wlhid.bash-completion", tool::bashCompletion(app));
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 4) {
    tool::complain("usage: wlhid-manual TEMPLATE DATE DIRECTORY");
    return tool::ExitWrongUsage;
  }
  writeAll(contentOf(argv[1]), {argv[2], WLHID_VERSION}, argv[3]);
} catch (const std::exception& error) {
  tool::complain("no manual: " + std::string(error.what()));
  return tool::ExitNotSo;
}
