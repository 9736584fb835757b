// SPDX-License-Identifier: Apache-2.0

// Other projects build with this one's library, in each of the ways that it offers, and their
// programs run.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "ToolTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSaidWithoutRouter =
    "@(#)PROGRAM:WLHIDAccess  PROJECT:WLHIDAccess-1\n"
    "the log module is registered\n"
    "the exception is caught\n"
    "the delegate is called\n"
    "not installed\n";
constexpr std::string_view kSaidInC = "version " WLHID_VERSION "\nnot installed\n";

class ConsumersTest : public ToolTest {
 protected:
  /// A copy of a project of this folder, with the application's sources.
  [[nodiscard]] fs::path project(const std::string& name) const {
    const fs::path here = sourcePath("tests/end-to-end/consumers");
    fs::copy(here / name, directory / name);
    fs::copy(here / "application.cpp", directory / name);
    fs::copy(here / "application.c", directory / name);
    return directory / name;
  }
  /// Runs a command that must succeed. Building may take longer than a test waits otherwise.
  void expectSuccess(const std::vector<std::string>& command) const {
    const fs::path log = directory / "log";
    std::string line = "timeout 500";
    for (const std::string& word : command) line += " " + inQuotes(word);
    line += " >" + inQuotes(log.string()) + " 2>&1";
    ASSERT_EQ(std::system(line.c_str()), 0) << line << '\n' << readFile(log);
  }
  void configureAndBuild(const fs::path& project, const std::vector<std::string>& settings) const {
    std::vector<std::string> configure{"cmake",
                                       "-S",
                                       project,
                                       "-B",
                                       project / "build",
                                       "-G",
                                       "Ninja",
                                       "-DCMAKE_CXX_COMPILER=" WLHID_CXX,
                                       "-DCMAKE_C_COMPILER=" WLHID_CC};
    configure.insert(configure.end(), settings.begin(), settings.end());
    expectSuccess(configure);
    if (HasFatalFailure()) return;
    expectSuccess({"cmake", "--build", project / "build"});
  }
  /// What a user has who installed the packages.
  [[nodiscard]] fs::path installed() const {
    fs::path prefix = directory / "prefix";
    expectSuccess({"cmake", "--install", builtPath(""), "--prefix", prefix});
    return prefix;
  }
  [[nodiscard]] ProcessOptions environment() const {
    ProcessOptions all = options();
    std::erase_if(all.environment, [](const auto& entry) { return entry.first == "WLHID_ROOT"; });
    all.environment.emplace_back("WLHID_ROOT", root);
    return all;
  }
  void expectRuns(const fs::path& program, std::string_view said = kSaidWithoutRouter) const {
    const Outcome outcome = run({program}, environment());
    EXPECT_EQ(outcome.status, 0) << program << outcome.err;
    EXPECT_EQ(outcome.out, said) << program << outcome.err;
  }
  /// The program installs the router of its bundle with the daemon of its bundle; the person at the
  /// terminal answers yes.
  void expectInstallsItsRouter(const fs::path& program) const {
    const fs::path input = directory / "terminal-input";
    ASSERT_EQ(::mkfifo(input.c_str(), 0600), 0);
    Process process(
        {"/bin/sh", "-c", R"(exec script -qefc "'$0' install" /dev/null <>"$1")", program, input},
        environment());
    process.waitForOutputContaining("cancel > ");
    writeFile(input, "y\n");
    EXPECT_EQ(process.wait(), 0);
    EXPECT_NE(process.output().find("\ninstalled"), std::string::npos) << process.output();
    EXPECT_EQ(run({program}, environment()).out.find("not installed"), std::string::npos);
  }
};

TEST_F(ConsumersTest, FindTheInstalledPackage) {
  const fs::path prefix = installed();
  const fs::path package = project("package");
  configureAndBuild(package, {"-DCMAKE_PREFIX_PATH=" + prefix.string()});
  expectRuns(package / "build/static");
  expectInstallsItsRouter(package / "build/shared");
}

TEST_F(ConsumersTest, InstallTheBundleBesideTheirProgram) {
  const fs::path package = project("package");
  configureAndBuild(package, {"-DWLHIDAccess_DIR=" + builtPath("").string()});
  expectSuccess({"cmake", "--install", package / "build", "--prefix", package / "installed"});
  const fs::path contents = package / "installed/bin/Contents";
  EXPECT_EQ(readFile(contents / "Library/LaunchServices/com.quillmar.hideventrouter"),
            readFile(builtPath("Contents/Library/LaunchServices/com.quillmar.hideventrouter")));
  EXPECT_EQ(::access((contents / "Helpers/wlhid-jobd").c_str(), X_OK), 0);
}

TEST_F(ConsumersTest, FindTheBundleOfAnApplicationsFolder) {
  const fs::path package = project("package");
  configureAndBuild(package, {"-DWLHIDAccess_DIR=" + builtPath("").string()});
  expectSuccess({"cmake", "--install", package / "build", "--prefix", package / "installed"});
  fs::remove_all(package / "build/Pen.app");
  expectInstallsItsRouter(package / "installed/Pen.app/Contents/MacOS/pen");
}

TEST_F(ConsumersTest, FindThePackageOfABuildTree) {
  const fs::path package = project("package");
  configureAndBuild(package, {"-DWLHIDAccess_DIR=" + builtPath("").string()});
  expectRuns(package / "build/static");
  expectInstallsItsRouter(package / "build/shared");
}

TEST_F(ConsumersTest, BuildTheLibraryThemselves) {
  const fs::path consumer = project("sources");
  std::vector<std::string> settings{"-DWLHID_SOURCES=" + sourcePath("").string(),
                                    "-DWLHID_FAST_BUILD=ON"};
  configureAndBuild(consumer, settings);
  expectRuns(consumer / "build/shared");
  expectRuns(consumer / "build/static");
  expectRuns(consumer / "build/c", kSaidInC);
  EXPECT_FALSE(fs::exists(consumer / "build/wlhidaccess/Contents")) << "nobody asked for a router";

  EXPECT_EQ(run({consumer / "build/tested"}, environment()).status, 0);

  // In the same directory, so that what has been compiled is not compiled again.
  settings.insert(settings.end(), {"-DFETCH=ON", "-DWLHID_ROUTER=ON"});
  fs::remove(consumer / "build/shared");
  configureAndBuild(consumer, settings);
  expectRuns(consumer / "build/shared");
  expectInstallsItsRouter(consumer / "build/static");
}

TEST_F(ConsumersTest, UseMakeAndPkgConfig) {
  const fs::path prefix = installed();
  const fs::path libraries = prefix / WLHID_LIBRARY_DIRECTORY;
  const fs::path consumer = project("make");
  expectSuccess({"env", "PKG_CONFIG_PATH=" + (libraries / "pkgconfig").string(), "make", "-C",
                 consumer, "CXX=" WLHID_CXX});
  expectRuns(consumer / "static");
  const Outcome outcome =
      run({"env", "LD_LIBRARY_PATH=" + libraries.string(), consumer / "shared"}, environment());
  EXPECT_EQ(outcome.out, kSaidWithoutRouter) << outcome.err;
}

TEST_F(ConsumersTest, AreWrittenInCAndFindTheInstalledPackage) {
  const fs::path prefix = installed();
  const fs::path libraries = prefix / WLHID_LIBRARY_DIRECTORY;
  const fs::path consumer = project("c");
  configureAndBuild(consumer, {"-DCMAKE_PREFIX_PATH=" + prefix.string()});
  expectRuns(consumer / "build/application", kSaidInC);

  expectSuccess({"env", "PKG_CONFIG_PATH=" + (libraries / "pkgconfig").string(), "make", "-C",
                 consumer, "CC=" WLHID_CC});
  const Outcome outcome = run(
      {"env", "LD_LIBRARY_PATH=" + libraries.string(), consumer / "application"}, environment());
  EXPECT_EQ(outcome.out, kSaidInC) << outcome.err;
}

TEST_F(ConsumersTest, AreWrittenInCAndFindThePackageOfABuildTree) {
  const fs::path consumer = project("c");
  configureAndBuild(consumer, {"-DWLHIDAccess_DIR=" + builtPath("").string()});
  expectRuns(consumer / "build/application", kSaidInC);
}

TEST_F(ConsumersTest, DoWithoutTheLibraryForCWhereItIsNotInstalled) {
  const fs::path prefix = installed();
  fs::remove(prefix / WLHID_LIBRARY_DIRECTORY / "cmake/WLHIDAccess/WLHIDAccessCTargets.cmake");
  const fs::path package = project("package");
  configureAndBuild(package, {"-DCMAKE_PREFIX_PATH=" + prefix.string()});
  expectRuns(package / "build/shared");
}

}  // namespace
}  // namespace test
