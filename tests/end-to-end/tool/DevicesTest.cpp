// wlhid devices.
#include <sys/stat.h>

#include "ToolTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

class DevicesTest : public ToolTest {
 protected:
  [[nodiscard]] nlohmann::json devices() const {
    const Outcome outcome = runTool({"devices", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return nlohmann::json::parse(outcome.out);
  }
  [[nodiscard]] Outcome add(const fs::path& file) const {
    return runTool({"devices", "add", file});
  }
};

TEST_F(DevicesTest, AnEmptyListIsAnEmptyArray) {
  EXPECT_EQ(devices(), nlohmann::json::array());
  EXPECT_NE(runTool({"devices"}).out.find("wlhid devices add"), std::string::npos);
}

TEST_F(DevicesTest, ARecordingBecomesADevice) {
  const std::string id = addDevice("qemu-usb-kbd.hid");
  const auto list = devices();
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0]["registryEntryID"], std::stoull(id, nullptr, 16));
  EXPECT_EQ(list[0]["name"], "QEMU QEMU USB Keyboard");
  EXPECT_EQ(list[0]["bus"], 3);
  EXPECT_EQ(list[0]["vendor"], 0x0627);
  EXPECT_EQ(list[0]["product"], 0x0001);
  const std::string table = runTool({"devices"}).out;
  EXPECT_NE(table.find(id), std::string::npos) << table;
  EXPECT_NE(table.find("QEMU QEMU USB Keyboard"), std::string::npos) << table;
  EXPECT_NE(table.find("0003:0627:0001"), std::string::npos) << table;
  EXPECT_NE(table.find("qemu-usb-kbd.hid"), std::string::npos) << table;
}

TEST_F(DevicesTest, ARelativePathIsOfTheCommandsOwnDirectory) {
  fs::copy_file(sourcePath("recordings/qemu-usb-kbd.hid"), directory / "k.hid");
  std::vector<std::string> command{"env", "--chdir=" + directory.string()};
  for (const std::string& argument : wlhid({"devices", "add", "k.hid"}))
    command.push_back(argument);
  EXPECT_EQ(run(command, options()).status, 0);
  EXPECT_NE(devices()[0]["source"].get<std::string>().find((directory / "k.hid").string()),
            std::string::npos);
}

TEST_F(DevicesTest, ADeviceCanBeRemovedByIDOrName) {
  const std::string keyboard = addDevice("qemu-usb-kbd.hid");
  addDevice("qemu-usb-mouse.hid");
  EXPECT_EQ(runTool({"devices", "remove", keyboard}).status, 0);
  ASSERT_EQ(devices().size(), 1U);
  EXPECT_EQ(runTool({"devices", "remove", "QEMU QEMU USB Mouse"}).status, 0);
  EXPECT_EQ(devices().size(), 0U);
}

TEST_F(DevicesTest, ADeviceOfAnotherRecordingWithTheSameNameIsNotReplaced) {
  writeFile(directory / "a/m.hid", "R: 2 05 01\nN: First\n");
  writeFile(directory / "b/m.hid", "R: 2 05 01\nN: Second\n");
  writeFile(directory / "b/\u043c\u044b\u0448\u044c.hid", "R: 2 05 01\nN: Third\n");
  writeFile(directory / "b/\u0434\u043e\u043c.hid", "R: 2 05 01\nN: Fourth\n");
  const Outcome first = add(directory / "a/m.hid");
  for (const char* other :
       {"b/m.hid", "b/\u043c\u044b\u0448\u044c.hid", "b/\u0434\u043e\u043c.hid"})
    EXPECT_NE(add(directory / other).out, first.out);
  EXPECT_EQ(devices().size(), 4U);
  // The very same device is no further one.
  EXPECT_EQ(add(directory / "a/m.hid").out, first.out);
  EXPECT_EQ(devices().size(), 4U);
  EXPECT_EQ(runTool({"devices", "add", directory / "a/m.hid", "--speed", "2"}).status, 0);
  EXPECT_EQ(devices().size(), 5U);
}

TEST_F(DevicesTest, ADeviceWhoseRecordingIsGoneCanBeRemoved) {
  for (const char* name : {"one", "two", "three"}) {
    writeFile(directory / (name + std::string(".hid")), "R: 2 05 01\nN: Mouse\n");
  }
  const std::string id = add(directory / "one.hid").out;
  EXPECT_EQ(add(directory / "two.hid").status, 0);
  EXPECT_EQ(runTool({"devices", "add", directory / "three.hid", "--name", "Third"}).status, 0);
  for (const char* name : {"one", "two", "three"})
    fs::remove(directory / (name + std::string(".hid")));
  const Outcome listed = runTool({"devices", "--json"});
  EXPECT_NE(listed.err.find("(wlhid devices remove two takes it away)"), std::string::npos)
      << listed.err;
  EXPECT_EQ(runTool({"devices", "remove", id.substr(0, id.find('\n'))}).status, 0);
  EXPECT_EQ(runTool({"devices", "remove", "two"}).status, 0);
  EXPECT_EQ(runTool({"devices", "remove", "Third"}).status, 0);
  EXPECT_EQ(runTool({"devices", "--json"}).err, "");
}

TEST_F(DevicesTest, ALongNameIsCut) {
  writeFile(directory / "long.hid", "R: 2 05 01\nN: " + std::string(100'000, 'x') + "\n");
  EXPECT_EQ(add(directory / "long.hid").status, 0);
  EXPECT_LT(runTool({"devices", "--json"}).out.size(), 1000U);
  for (const std::string& line : linesOf(runTool({"devices"}).out))
    EXPECT_LT(line.size(), 120 + directory.string().size());
}

TEST_F(DevicesTest, ANameWithEscapeSequencesIsShownAndNotObeyed) {
  writeFile(directory / "loud.hid", "R: 2 05 01\nN: a\x1b[2Jb\u202ec\n");
  EXPECT_EQ(add(directory / "loud.hid").status, 0);
  EXPECT_EQ(devices()[0]["name"], "a\\x1b[2Jb\\u202ec");
}

TEST_F(DevicesTest, ADeviceThatIsCalledANumberCanBeSaid) {
  writeFile(directory / "twelve.hid", "R: 2 05 01\nN: 12\n");
  writeFile(directory / "other.hid", "R: 2 05 01\nN: Other\n");
  const std::string other = add(directory / "other.hid").out;
  for (const char* text : {"12", "name:12"}) {
    EXPECT_EQ(add(directory / "twelve.hid").status, 0);
    EXPECT_EQ(devices().size(), 2U);
    EXPECT_TRUE(isRefusal(runTool({"devices", "remove", "id:12"}), 1, "id:12"));
    EXPECT_EQ(runTool({"devices", "remove", text}).status, 0);
    EXPECT_EQ(devices().size(), 1U);
  }
  EXPECT_EQ(runTool({"devices", "remove", "id:" + other.substr(0, other.find('\n'))}).status, 0);
  EXPECT_EQ(devices().size(), 0U);
}

TEST_F(DevicesTest, StandardInputBecomesNoDevice) {
  EXPECT_TRUE(isRefusal(runTool({"devices", "add", "-"}), 2, "route --recording -"));
}

TEST_F(DevicesTest, RemovingWhatIsNotThereIsRefused) {
  EXPECT_TRUE(isRefusal(runTool({"devices", "remove", "0x17"}), 1, "0x17"));
  EXPECT_TRUE(isRefusal(runTool({"devices", "remove", "No Such Mouse"}), 1, "No Such Mouse"));
}

TEST_F(DevicesTest, WhatIsNoRecordingIsRefusedAndNothingIsSetUp) {
  writeFile(directory / "text", "only text\n");
  writeFile(directory / "empty", "");
  writeFile(directory / "cut", readFile(sourcePath("recordings/qemu-usb-kbd.hid")).substr(0, 120));
  writeFile(directory / "binary", std::string("\x7f"
                                              "ELF\0\0\0\1",
                                              8));
  for (const char* name : {"text", "empty", "cut", "binary", "missing"}) {
    EXPECT_TRUE(isRefusal(add(directory / name), 1, name));
  }
  EXPECT_TRUE(isRefusal(add(directory), 1, directory.string()));
  writeFile(directory / "huge", "x");
  fs::resize_file(directory / "huge", std::uintmax_t{1} << 40);
  EXPECT_TRUE(isRefusal(add(directory / "huge"), 1, "huge"));
  const fs::path pipe = directory / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_TRUE(isRefusal(add(pipe), 1, "pipe"));
  EXPECT_EQ(devices().size(), 0U);
}

TEST_F(DevicesTest, ADamagedConfigurationIsReportedAndTheOthersAreListed) {
  addDevice("qemu-usb-kbd.hid");
  writeFile(root / "etc/hideventrouter/broken.plist", "no property list");
  const Outcome outcome = runTool({"devices", "--json"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(nlohmann::json::parse(outcome.out).size(), 1U);
  EXPECT_EQ(linesOf(outcome.err).size(), 1U);
  EXPECT_NE(outcome.err.find("broken.plist"), std::string::npos) << outcome.err;
}

}  // namespace
}  // namespace test
