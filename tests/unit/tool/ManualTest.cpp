// SPDX-License-Identifier: Apache-2.0

// The manual pages and the completion are made of the parser's tables: of those of a small command
// of the test's own, to the letter, and of all of wlhid's.
#include <gmock/gmock.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tool/command/CommandLine.h"
#include "tool/manual/BashCompletion.h"
#include "tool/manual/ManualPage.h"

namespace tool {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

const ManualEdition kEdition{"2001-02-03", "4.5"};

/// A command with one verb of each kind.
class Sample {
 public:
  Sample() {
    app_.name("sample");
    app_.add_option("--root", root_, "The root\n(default: none)")->type_name("DIR");
    CLI::App* brew = app_.add_subcommand("brew", "Brews tea, until Ctrl-C");
    brew->add_option("POT", pot_, "Where")->required();
    brew->add_option("LEAF", leaves_, "What of")->expected(1, 3);
    brew->add_option("-t,--time", time_, "How long")->type_name("S");
    brew->add_option("--log", log_, "Writes a log")->type_name("FILE");
    brew->add_flag("--black", isBlack_, "With \\-signs and\nmore words.");
    brew->add_flag("--secret", isBlack_, "Not for people")->group("");
    brew->footer(
        "One line\nand the next.\n\n.Not a request.\n\nExamples:\n  sample brew pot\n  '-'");
    CLI::App* cups = app_.add_subcommand("cups", "Lists the cups");
    cups->add_subcommand("wash", "Washes a cup")->add_option("N", time_, "Which");
    cups->get_subcommand("wash")->footer("Example:\n  sample cups wash 1");
    app_.add_subcommand("hidden", "Nobody sees it")->group("");
  }
  [[nodiscard]] const CLI::App& app() const { return app_; }
  [[nodiscard]] std::string page(const std::string& verb) const {
    return verbPage(app_, *app_.get_subcommand(verb), kEdition);
  }

 private:
  CLI::App app_;
  std::string root_, pot_, time_, log_;
  std::vector<std::string> leaves_;
  bool isBlack_ = false;
};

TEST(Manual, AVerbsPageIsItsTable) {
  EXPECT_EQ(Sample().page("brew"), R"(.\" SPDX-License-Identifier: Apache-2.0
.TH SAMPLE-BREW 1 2001-02-03 "WLHIDAccess 4.5" "User Commands"
.SH NAME
sample\-brew \- brews tea, until Ctrl\-C
.SH SYNOPSIS
\fBsample brew\fR [\fIOPTION\fR...] \fIPOT\fR [\fILEAF\fR...]
.SH DESCRIPTION
Brews tea, until Ctrl\-C.
.PP
One line
and the next.
.PP
\&.Not a request.
.SH ARGUMENTS
.TP
\fIPOT\fR
Where.
.TP
\fILEAF\fR
What of.
.SH OPTIONS
.TP
\fB\-t\fR, \fB\-\-time\fR \fIS\fR
How long.
.TP
\fB\-\-log\fR \fIFILE\fR
Writes a log.
.TP
\fB\-\-black\fR
With \e\-signs and
more words.
.SH EXAMPLES
.nf
sample brew pot
\&'\-'
.fi
.SH SEE ALSO
.BR sample (1),
for the root and the exit status
)");
}

TEST(Manual, NestedVerbsArePartOfThePage) {
  EXPECT_THAT(Sample().page("cups"), HasSubstr(R"(.SH SYNOPSIS
\fBsample cups\fR
.br
\fBsample cups wash\fR [\fIN\fR]
)"));
  EXPECT_THAT(Sample().page("cups"), HasSubstr(R"(.SH SUBCOMMANDS
.SS sample cups wash
\fBsample cups wash\fR [\fIN\fR]
.PP
Washes a cup.
.TP
\fIN\fR
Which.
.PP
Example:
.PP
.nf
sample cups wash 1
.fi
)"));
}

TEST(Manual, TheCommandsPageIsItsTemplateFilledIn) {
  const Sample sample;
  EXPECT_EQ(commandPage(sample.app(), "@DATE@ @VERSION@\n@VERBS@\n.SH\n@OPTIONS@\n", kEdition),
            R"(2001-02-03 4.5
.TP
.BR sample\-brew (1)
Brews tea, until Ctrl\-C.
.TP
.BR sample\-cups (1)
Lists the cups.
.SH
.TP
\fB\-\-root\fR \fIDIR\fR
The root
(default: none).
.TP
\fB\-h\fR, \fB\-\-help\fR
Print this help message and exit.
)");
}

/// What the completion in a file offers for the last of the words.
std::vector<std::string> completed(const std::string& script, const std::string& words) {
  std::string file = (fs::temp_directory_path() / "wlhid-completion.XXXXXX").string();
  ::close(::mkstemp(file.data()));
  std::ofstream(file) << script;
  const std::string command =
      "bash -c '. " + file + R"(; name=$1; COMP_WORDS=("$@"); )" +
      R"(COMP_CWORD=$(($# - 1)); _$name; printf "%s\n" "${COMPREPLY[@]}"' x )" + words;
  std::FILE* const shell = ::popen(command.c_str(), "r");
  std::vector<std::string> offered;
  std::array<char, 256> line{};
  while (std::fgets(line.data(), line.size(), shell) != nullptr) {
    const std::string word = std::string(line.data(), std::strcspn(line.data(), "\n"));
    if (!word.empty()) offered.push_back(word);
  }
  ::pclose(shell);
  fs::remove(file);
  return offered;
}

using Words = std::vector<std::string>;

TEST(Completion, OffersVerbsOptionsAndFiles) {
  const std::string script = bashCompletion(Sample().app());
  EXPECT_EQ(completed(script, "sample ''"), (Words{"brew", "cups"}));
  EXPECT_EQ(completed(script, "sample c"), (Words{"cups"}));
  EXPECT_EQ(completed(script, "sample --root /tmp b"), (Words{"brew"}));
  EXPECT_EQ(completed(script, "sample --root brew c"), (Words{"cups"}));
  EXPECT_EQ(completed(script, "sample cups ''"), (Words{"wash"}));
  EXPECT_EQ(completed(script, "sample brew --b"), (Words{"--black"}));
  EXPECT_EQ(completed(script, "sample brew -t cups --b"), (Words{"--black"}));
  EXPECT_EQ(completed(script, "sample brew --r"), (Words{"--root"}));
  EXPECT_EQ(completed(script, "sample brew --s"), Words{});
  EXPECT_EQ(completed(script, "sample brew --log /usr/bi"), (Words{"/usr/bin"}));
  EXPECT_EQ(completed(script, "sample brew /usr/bi"), (Words{"/usr/bin"}));
  EXPECT_EQ(completed(script, "sample brew --time /usr/bi"), Words{});
  EXPECT_EQ(completed(script, "sample cups wash 1 /usr/bi"), (Words{"/usr/bin"}));
  EXPECT_EQ(completed(script, "sample cups /usr/bi"), Words{});
}

/// All of wlhid.
class ManualOfWlhid : public testing::Test {
 protected:
  ManualOfWlhid() { describeCommand(app_, root_, chosen_); }
  CLI::App app_;

 private:
  std::string root_;
  Action chosen_;
};

TEST_F(ManualOfWlhid, EachVerbSaysWhatItDoesAndShowsAnExample) {
  EXPECT_GT(shownVerbs(app_).size(), 15U);
  for (const CLI::App* verb : shownVerbs(app_)) {
    const std::string page = verbPage(app_, *verb, kEdition);
    EXPECT_FALSE(verb->get_description().empty()) << verb->get_name();
    EXPECT_THAT(page, HasSubstr(".SH EXAMPLES\n.nf\n"));
    EXPECT_THAT(page, HasSubstr("wlhid " + verb->get_name()));
    EXPECT_THAT(page, Not(HasSubstr("\\fIFLOAT\\fR"))) << "an option without a type_name";
  }
}

TEST_F(ManualOfWlhid, ItsCompletionKnowsItsVerbs) {
  const std::string script = bashCompletion(app_);
  EXPECT_EQ(completed(script, "wlhid rout"), (Words{"route"}));
  EXPECT_EQ(completed(script, "wlhid devices a"), (Words{"add"}));
  EXPECT_EQ(completed(script, "wlhid help sess"), (Words{"sessions"}));
  EXPECT_EQ(completed(script, "wlhid devices add --rep"), (Words{"--repeat"}));
}

/// A checker of manual pages, where there is one.
TEST_F(ManualOfWlhid, AFormatterFindsNothingToComplainAbout) {
  if (std::system("mandoc -V >/dev/null 2>&1; test $? -ne 127") != 0)
    GTEST_SKIP() << "mandoc is not installed";
  const char* const build = std::getenv("WLHID_BINARY_DIR");
  ASSERT_NE(build, nullptr);
  std::size_t pages = 0;
  for (const auto& entry : fs::directory_iterator(fs::path(build) / "manual/man1")) {
    const std::string command =
        "mandoc -T lint -W warning '" + entry.path().string() + "' >/dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0) << "mandoc -T lint " << entry.path();
    ++pages;
  }
  EXPECT_EQ(pages, shownVerbs(app_).size() + 1);
}

}  // namespace
}  // namespace tool
