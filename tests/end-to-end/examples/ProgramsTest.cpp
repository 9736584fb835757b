// SPDX-License-Identifier: Apache-2.0

// The examples that print.
#include <algorithm>
#include <csignal>

#include "ToolTest.h"
#include "platform/services/JobDaemon.h"

namespace test {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kFirstValues =
    "connecting: the router has been asked for Example Pen\n"
    "routing Example Pen\n"
    "Tip Switch=0 In Range=1 Barrel=0 X=2949 Y=5611 Tip Pressure=0";

long valuesIn(const std::vector<std::string>& lines) {
  return std::ranges::count_if(
      lines, [](const std::string& line) { return line.starts_with("Tip Switch="); });
}

class ExampleProgramsTest : public ToolTest {
 protected:
  [[nodiscard]] ProcessOptions onThisRoot() const {
    ProcessOptions all = options();
    std::erase_if(all.environment, [](const auto& entry) { return entry.first == "WLHID_ROOT"; });
    all.environment.emplace_back("WLHID_ROOT", root);
    all.environment.emplace_back("LD_LIBRARY_PATH", builtPath(""));
    all.environment.emplace_back("PYTHONPATH", sourcePath("python"));
    return all;
  }
  /// Runs a shell command, in which $0 is `program`.
  [[nodiscard]] Outcome inShell(const std::string& command, const fs::path& program) const {
    return run({"/bin/sh", "-c", command, program}, onThisRoot());
  }
  void killRouter() const {
    const auto status = platform::JobDaemon(platform::SystemRoot(root)).status();
    ASSERT_TRUE(status && !status->jobs.empty());
    ASSERT_EQ(::kill(static_cast<pid_t>(status->jobs.front().processIdentifier), SIGKILL), 0);
  }
  /// An example in Python as an application of its own, whose bundle is `contents`.
  [[nodiscard]] std::vector<std::string> script(std::string_view name, const fs::path& contents,
                                                const std::vector<std::string>& arguments) const {
    const fs::path copy = directory / name;
    fs::copy_file(sourcePath("examples") / name, copy);
    fs::create_directory_symlink(contents, directory / "Contents");
    std::vector<std::string> command{"python3", "-B", copy};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
  }
};

TEST_F(ExampleProgramsTest, InputPrintsWhatAPenSendsUntilEnterIsPressed) {
  install();
  static_cast<void>(addDevice("pen.hid"));
  const fs::path enter = directory / "enter";
  Process process(
      {"/bin/sh", "-c", R"(mkfifo "$1"; exec "$0" <>"$1")", builtPath("examples/input"), enter},
      onThisRoot());
  process.waitForOutputContaining("Tip Pressure=8");
  writeFile(enter, "\n");
  EXPECT_EQ(process.wait(), 0);
  EXPECT_TRUE(process.output().starts_with(kFirstValues)) << process.output();
}

TEST_F(ExampleProgramsTest, CPollPrintsWhatAPenSendsUntilItEnds) {
  install();
  static_cast<void>(addDevice("pen.hid", {"--speed", "max"}));
  const Outcome outcome = run({builtPath("examples/c-poll")}, onThisRoot());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_TRUE(outcome.out.starts_with(kFirstValues)) << outcome.out;
  const auto lines = linesOf(outcome.out);
  EXPECT_EQ(lines.back().substr(0, 7), "ended: ") << lines.back();
  EXPECT_EQ(valuesIn(lines), 326) << "as many reports as there are in the recording";
}

TEST_F(ExampleProgramsTest, CPollGoesOnWhereItHadNoRouterAtFirst) {
  Process process({builtPath("examples/c-poll")}, onThisRoot());
  process.waitForOutputContaining("waiting for the router");
  install();
  process.waitForOutputContaining("waiting for");
  static_cast<void>(addDevice("pen.hid", {"--speed", "max"}));
  EXPECT_EQ(process.wait(), 0) << process.output();
  EXPECT_NE(process.output().find("Tip Pressure=8"), std::string::npos) << process.output();
}

TEST_F(ExampleProgramsTest, OwnRouterIsInstalledAfterAQuestionAndUsed) {
  const fs::path application = builtPath("examples/own-router/own-router-application");
  const Outcome refused = inShell(R"(echo n | "$0")", application);
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("denied"), std::string::npos) << refused.err;

  const Outcome outcome = inShell(R"(echo y | "$0")", application);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(outcome.out.starts_with("May the dial's router be installed? [y/n] Dial "))
      << outcome.out;
  EXPECT_EQ(linesOf(outcome.out).size(), 20U);

  const Outcome again = inShell(R"("$0" </dev/null)", application);
  EXPECT_EQ(again.status, 0) << again.err;
  EXPECT_TRUE(again.out.starts_with("Dial ")) << "nobody is asked twice: " << again.out;
}

TEST_F(ExampleProgramsTest, PythonDialDrawsTheDialOfAnApplicationsOwnRouterAlsoAfterItsDeath) {
#if defined(WLHID_INSTRUMENTED)
  GTEST_SKIP() << "the interpreter cannot load an instrumented library";
#endif
  ASSERT_EQ(
      inShell(R"(echo y | "$0")", builtPath("examples/own-router/own-router-application")).status,
      0);
  Process process(script("python-dial.py", builtPath("examples/own-router/Contents"), {"0x2a"}),
                  onThisRoot());
  process.waitForOutputContaining("routing 0x2a\nDial [");
  process.waitForOutputContaining("Dial [##########");
  killRouter();
  process.waitForOutputContaining("reconnecting: the router has ended unexpectedly\n");
  process.waitForOutput([](const std::string& output) {
    const auto again = output.rfind("routing 0x2a\n");
    return again > output.rfind("reconnecting: ") &&
           output.find("Dial [", again) != std::string::npos;
  });
  process.signal(SIGINT);
  EXPECT_EQ(process.wait(), 0) << process.errorOutput();
}

TEST_F(ExampleProgramsTest, InputInPythonPrintsWhatAPenSendsUntilItEnds) {
#if defined(WLHID_INSTRUMENTED)
  GTEST_SKIP() << "the interpreter cannot load an instrumented library";
#endif
  install();
  static_cast<void>(addDevice("pen.hid", {"--speed", "max"}));
  const std::string withBundle = "import runpy, wlhid; wlhid.use_bundle('" +
                                 builtPath("").string() + "'); runpy.run_path('" +
                                 sourcePath("examples/input.py").string() + "')";
  const Outcome outcome = run({"python3", "-B", "-c", withBundle}, onThisRoot());
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(outcome.out.starts_with(kFirstValues)) << outcome.out;
  EXPECT_EQ(valuesIn(linesOf(outcome.out)), 326);
}

TEST_F(ExampleProgramsTest, TestYourAppPasses) {
  const Outcome outcome = run({builtPath("examples/test-your-app/test-your-app")});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "passed\n");
}

}  // namespace
}  // namespace test
