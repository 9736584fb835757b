// SPDX-License-Identifier: Apache-2.0

// Command lines that can be pasted into a shell.
#include "tool/command/Invocation.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "platform/services/SystemRoot.h"

namespace tool {
namespace {

/// How a shell interprets it.
std::string echoed(const std::string& word) {
  // NOLINTNEXTLINE(cert-env33-c): the shell is under test here
  FILE* const shell = ::popen(("printf %s " + word).c_str(), "r");
  std::array<char, 256> buffer{};
  const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), shell);
  ::pclose(shell);
  return {buffer.data(), count};
}

class InvocationTest : public testing::Test {
 protected:
  ~InvocationTest() override {
    setInvocation("", false);
    platform::SystemRoot::resetCurrent();
  }
};

TEST_F(InvocationTest, AShellTakesEveryWordForWhatItIs) {
  EXPECT_EQ(shellWord("/plain/path-1.0_x"), "/plain/path-1.0_x");
  for (const char* text : {"", "a b", "it's", "$HOME `id` \\ * ;", "\x1b[31m", "line\nfeed",
                           "\u202e.txt", "\xff", "~"}) {
    const std::string word = shellWord(text);
    EXPECT_EQ(echoed(word), text) << word;
    EXPECT_EQ(word.find('\x1b'), std::string::npos);
    EXPECT_EQ(word.find('\n'), std::string::npos);
  }
}

TEST_F(InvocationTest, NamesTheProgramAsItWasTyped) {
  setInvocation("my build/wlhid", false);
  EXPECT_EQ(commandLine({"install", "--force"}), "'my build/wlhid' install --force");
}

TEST_F(InvocationTest, NamesTheRootWhereOneWasNamed) {
  platform::SystemRoot::setCurrent(platform::SystemRoot("/a root"));
  setInvocation("wlhid", true);
  EXPECT_EQ(commandLine({"log"}), "wlhid --root '/a root' log");
  EXPECT_EQ(commandLineOnOwnRoot({"install"}), "env -u WLHID_ROOT wlhid install");
}

}  // namespace
}  // namespace tool
