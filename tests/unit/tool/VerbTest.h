// SPDX-License-Identifier: Apache-2.0

// A verb of the command, called in this process on a scripted platform and the test's own root.
//
// Errors: a verb's errors are in the outcome, as the command would report them.
#pragma once

#include <gtest/gtest.h>
#include <CLI/CLI.hpp>

#include <string>
#include <thread>
#include <vector>

#include "platform/scripted/ScriptedPlatform.h"
#include "platform/services/SystemRoot.h"
#include "tests/support/TemporaryDirectory.h"
#include "tool/command/Command.h"
#include "tool/command/Invocation.h"

namespace tool {

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

class VerbTest : public testing::Test {
 protected:
  static inline const std::string kLabel = "com.quillmar.hideventrouter";
  static inline const std::string kBundleCopy =
      "/Applications/Example.app/Contents/Library/LaunchServices/com.quillmar.hideventrouter";
  static inline const std::string kInstalledCopy =
      "/Library/PrivilegedHelperTools/com.quillmar.hideventrouter";

  VerbTest() {
    platform_.setLogLevel(9);
    platform::SystemRoot::setCurrent(root_);
  }
  ~VerbTest() override {
    platform::SystemRoot::resetCurrent();
    setInvocation("", false);
  }

  using Verb = void (*)(CLI::App&, Action&);
  /// Calls the verb with these arguments, its own name first.
  static Outcome run(Verb add, const std::vector<std::string>& arguments) {
    CLI::App app;
    Action chosen;
    add(app, chosen);
    Outcome outcome;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    try {
      app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
      outcome.status = chosen();
    } catch (const CLI::ParseError& error) {
      complainOf(outcome, ExitWrongUsage, error);
    } catch (const UsageFailure& error) {
      complainOf(outcome, ExitWrongUsage, error);
    } catch (const std::exception& error) {
      complainOf(outcome, ExitNotSo, error);
    }
    outcome.out = testing::internal::GetCapturedStdout();
    outcome.err = testing::internal::GetCapturedStderr() + outcome.err;
    return outcome;
  }
  static testing::AssertionResult isRefusal(const Outcome& outcome, int status,
                                            const std::string& text) {
    if (outcome.status == status && outcome.out.empty() && outcome.err == text)
      return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "exit status " << outcome.status << ", not " << status << "\n"
           << outcome.out << outcome.err << "\ninstead of\n"
           << text;
  }
  void installVersion(const std::string& installed, const std::string& own = "1.0") {
    platform_.setBundleCopy(kLabel, own);
    platform_.installHelper(kLabel, installed);
  }
  /// Sets up a recording with that name as a device; returns its ID as printed.
  [[nodiscard]] std::string addDevice(const std::string& file, const std::string& name) const {
    testsupport::writeFile(directory_.path() / file, "R: 2 05 01\nN: " + name + "\n");
    const Outcome outcome =
        run(addDevicesVerb, {"devices", "add", (directory_.path() / file).string()});
    EXPECT_EQ(outcome.err, "");
    return outcome.out.substr(0, outcome.out.find('\n'));
  }

  platform::ScriptedPlatform platform_;
  const testsupport::TemporaryDirectory directory_;
  const platform::SystemRoot root_ = platform::SystemRoot(directory_.path() / "root");

 private:
  static void complainOf(Outcome& outcome, int status, const std::exception& error) {
    outcome.status = status;
    outcome.err = error.what();
  }
};

}  // namespace tool
