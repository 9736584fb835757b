// SPDX-License-Identifier: Apache-2.0

// Applications in C and Python, each a process of its own.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>

#include "InputFixture.h"
#include "platform/foundation/Format.h"

namespace {

using inputtest::InputFixture;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;

std::filesystem::path programs() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

/// A command that runs beside the test, and what it prints on both outputs.
class Running {
 public:
  explicit Running(const std::string& command)
      : pipe_(::popen((command + " 2>&1").c_str(), "r"), &::pclose) {}

  /// Reads up to a line with `part`.
  void await(const std::string& part) {
    std::array<char, 4096> line{};
    while (std::fgets(line.data(), line.size(), pipe_.get()) != nullptr) {
      output_ += line.data();
      if (std::string(line.data()).find(part) != std::string::npos) return;
    }
    ADD_FAILURE() << "no \"" << part << "\" came: " << output_;
  }

 private:
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe_;
  std::string output_;
};

/// What the command prints on both outputs.
std::string outputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen((command + " 2>&1").c_str(), "r"),
                                                   &::pclose);
  std::string output;
  std::array<char, 4096> buffer{};
  while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe.get()))
    output.append(buffer.data(), count);
  return output;
}

class CTest : public InputFixture {
 protected:
  void SetUp() override {
    InputFixture::SetUp();
    ::setenv("WLHID_ROOT", root_.path().c_str(), 1);
  }
  static std::string inC(const std::string& arguments) { return outputOf(C_POLL " " + arguments); }
};

TEST_F(CTest, ListsDevices) {
  wlhid::Router::install();
  const std::uint64_t id = addDevice("Mouse");
  EXPECT_EQ(inC("list"), platform::stringWithFormat(
                             "device 0x%llx Mouse: Mouse, 0627:0001, you may: it is your own "
                             "root's\ndescriptor of 19 bytes: 05 01\n",
                             id));
}

TEST_F(CTest, SaysWhatIsMissing) {
  EXPECT_THAT(inC("list"), HasSubstr("list failed: 4 There is no connection: the service is not "
                                     "installed"));
  EXPECT_THAT(inC("presence"), AllOf(HasSubstr("1 [] [1.0] The router is not installed"),
                                     HasSubstr("Install the router from this application.")));
}

TEST_F(CTest, InstallsWithTheConsentOfAPerson) {
  EXPECT_EQ(inC("install no"),
            "asked: C wants it.\ninstall failed: 6 The authorization was denied, so nothing was "
            "changed. Ask again, and answer yes.\n");
  EXPECT_EQ(inC("install"), "asked: C wants it.\ninstalled\n");
  EXPECT_EQ(inC("presence"), "0 [1.0] [1.0] Version 1.0 of the router is installed.\n");
}

TEST_F(CTest, WatchesDevicesByPoll) {
  wlhid::Router::install();
  addDevice("Mouse");
  EXPECT_THAT(inC("watch listed"), ContainsRegex("^arrived 0x[0-9a-f]+ Mouse: .*\nlisted \n$"));
}

TEST_F(CTest, AWatchTellsWhatComesAndGoes) {
  wlhid::Router::install();
  addDevice("Mouse");
  Running watch(C_POLL " watch departed");
  watch.await("arrived 0x");
  watch.await("listed");
  wlhid::Router::remove();
  watch.await("unavailable ");
  removeDevice("Mouse");
  addRecording("Mouse",
               "R: 19 05 01 09 02 a1 01 09 30 15 81 25 7f 75 08 95 01 81 02 c0\nN: Ball\n"
               "I: 3 0627 0001\nE: 000000.000000 1 01\n");
  wlhid::Router::install();
  watch.await(" Ball: Mouse, 0627:0001");
  removeDevice("Mouse");
  watch.await("departed 0x");
}

TEST_F(CTest, ReceivesOnlyTheValuesOfAUsage) {
  wlhid::Router::install();
  const std::string output =
      inC(platform::stringWithFormat("route 0x%llx 8 1 0x31", addTwoReports("Mouse")));
  EXPECT_THAT(output, HasSubstr("report 2 at some time: 02 06\nvalues Y=6 "));
  EXPECT_THAT(output, HasSubstr("report 1 at some time: 01 05\nreport 2"));
  EXPECT_THAT(output, testing::Not(HasSubstr("X=")));
}

TEST_F(CTest, InputThatHasEndedBeginsAgainAfterRetry) {
  wlhid::Router::install();
  const auto output = inC(platform::stringWithFormat("retry 0x%llx", addDevice("Once", false)));
  EXPECT_THAT(output, ContainsRegex("status 6 code 11: ended: .*\nagain\n"));
  EXPECT_THAT(output, testing::EndsWith("status 3 code 0: routing Once\n"));
}

TEST_F(CTest, ExclusiveInputKeepsOthersOutUntilItIsClosed) {
  wlhid::Router::install();
  const auto output = inC(platform::stringWithFormat("exclusive 0x%llx", addDevice("Mouse")));
  EXPECT_THAT(output, HasSubstr("status 4 code 9: reconnecting: "));
  EXPECT_THAT(output, testing::EndsWith("status 3 code 0: routing Mouse\n"));
}

TEST_F(CTest, ReceivesInputByPoll) {
  wlhid::Router::install();
  const std::uint64_t id = addDevice("Mouse");
  const std::string output = inC(platform::stringWithFormat("route 0x%llx 6", id));
  EXPECT_THAT(output, HasSubstr("status 0 code 0: connecting: the router has been asked for "
                                "Mouse\nstatus 3 code 0: routing Mouse\n"));
  EXPECT_THAT(output, HasSubstr("report 0 at some time: 01\nvalues X=1 (1 bytes, 01)\n"));
}

TEST_F(CTest, SaysWhyInputDoesNotCome) {
  EXPECT_THAT(inC("route 0x1 1"), HasSubstr("status 1 code 0: waiting for the router: The router "
                                            "is not installed"));
}

TEST_F(CTest, AnswersMistakesWithWords) {
  EXPECT_EQ(inC("misuse"),
            "2 options must not be null. This is a mistake in the program.\n"
            "2 input must not be null. This is a mistake in the program.\n"
            "2\n-1 -1\n0 1\n11 Le\n" WLHID_VERSION
            " same\n"
            "Another program has the device, or there are too many requests. Try again later.\n");
}

TEST_F(CTest, TheLibraryExportsItsInterfaceAndNothingElse) {
  const std::string names = outputOf("nm -D --defined-only " WLHID_C_LIBRARY);
  std::istringstream lines(names);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count)
    EXPECT_THAT(line, testing::AnyOf(HasSubstr(" T wlhid_"), HasSubstr(" A WLHID_1"))) << line;
  EXPECT_EQ(count, 24 + 1) << names;
}

TEST_F(CTest, PythonDoesTheSame) {
#ifdef WLHID_EMULATED
  GTEST_SKIP() << "the interpreter is one for another processor";
#endif
#ifdef WLHID_INSTRUMENTED
  GTEST_SKIP() << "the interpreter cannot load an instrumented library";
#endif
  wlhid::Router::install();
  const std::string source = std::getenv("WLHID_SOURCE_DIR");
  std::string layout = outputOf(LAYOUT);
  std::replace(layout.begin(), layout.end(), '\n', ' ');
  ::setenv("WLHID_TEST_BUNDLE", programs().parent_path().parent_path().c_str(), 1);
  ::setenv("WLHID_TEST_DEVICE", std::to_string(addDevice("Mouse")).c_str(), 1);
  ::setenv("WLHID_TEST_ENDING", std::to_string(addDevice("Ending", false)).c_str(), 1);
  ::setenv("WLHID_TEST_TWO_REPORTS", std::to_string(addTwoReports("Two")).c_str(), 1);
  ::setenv("WLHID_TEST_LAYOUT", layout.c_str(), 1);
  ::setenv("LD_LIBRARY_PATH", std::filesystem::path(WLHID_C_LIBRARY).parent_path().c_str(), 1);
  const std::string output = outputOf("cd " + source +
                                      "/python && " PYTHON
                                      " -B -X dev -W error -m unittest "
                                      "discover -s tests -t . 2>&1");
  EXPECT_THAT(output, ContainsRegex("Ran [12][0-9] tests in .*\n\nOK\n$"));
}

}  // namespace
