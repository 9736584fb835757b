// SPDX-License-Identifier: Apache-2.0

// examples/client, as the README shows it.
#include <sys/stat.h>

#include "ToolTest.h"

namespace test {
namespace {

class ExampleTest : public ToolTest {
 protected:
  /// The client, with a standard input on which writeFile(input_, "\n") is Enter.
  [[nodiscard]] std::vector<std::string> client(const std::string& device) {
    if (::mkfifo(input_.c_str(), 0600) != 0) ADD_FAILURE() << "no FIFO";
    return {"/bin/sh", "-c",  R"(exec "$0" "$1" <>"$2")", builtPath("examples/client"),
            device,    input_};
  }
  [[nodiscard]] ProcessOptions onThisRoot() const {
    ProcessOptions all = options();
    std::erase_if(all.environment, [](const auto& entry) { return entry.first == "WLHID_ROOT"; });
    all.environment.emplace_back("WLHID_ROOT", root);
    return all;
  }
  [[nodiscard]] Outcome withoutInput(const std::string& device) const {
    return run(
        {"/bin/sh", "-c", R"(exec "$0" "$1" </dev/null)", builtPath("examples/client"), device},
        onThisRoot());
  }

  const std::filesystem::path input_ = directory / "input";
};

TEST_F(ExampleTest, PrintsTheReportsOfADeviceUntilEnterIsPressed) {
  install();
  const std::string id = addDevice("qemu-usb-kbd.hid");
  Process process(client(id), onThisRoot());
  process.waitForOutputContaining("report 0: {length = 8, bytes = 0x");
  writeFile(input_, "\n");
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(process.errorOutput().substr(0, 18), "status 2\nstatus 4\n");
}

TEST_F(ExampleTest, SaysWhyThereIsNoInputWhereTheRouterIsNotInstalled) {
  const Outcome outcome = withoutInput("1");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "status 1\nThe router is not installed, or is not the one in " +
                             builtPath("examples").string() +
                             "/Contents/Library/LaunchServices. Install it (wlhid install); wlhid "
                             "doctor shows what else is missing.\n");
}

TEST_F(ExampleTest, SaysWhyThereIsNoInputWhereItsBundleIsNotFound) {
  install();
  const auto copy = directory / "client";
  std::filesystem::copy_file(builtPath("examples/client"), copy);
  const Outcome outcome = run({"/bin/sh", "-c", R"(exec "$0" 1 </dev/null)", copy}, onThisRoot());
  EXPECT_NE(outcome.err.find("or is not the one in " + directory.string() + "/Contents"),
            std::string::npos)
      << outcome.err;
}

TEST_F(ExampleTest, SaysWhyThereIsNoInputWhereThereIsNoSuchDevice) {
  install();
  Process process(client("77"), onThisRoot());
  process.waitForOutput([&](const std::string&) {
    return process.errorOutput().find("no device has the registry entry ID 0x4d") !=
           std::string::npos;
  });
  writeFile(input_, "\n");
  EXPECT_EQ(process.wait(), 0);
}

}  // namespace
}  // namespace test
