// SPDX-License-Identifier: Apache-2.0

// wlhid devices.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <memory>
#include <set>

#include "Situations.h"

namespace test {
namespace {

namespace fs = std::filesystem;

class DevicesTest : public SituationTest {
 protected:
  [[nodiscard]] nlohmann::json devices() const {
    const Outcome outcome = runTool({"devices", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return nlohmann::json::parse(outcome.out);
  }
  [[nodiscard]] Outcome add(const fs::path& file) const {
    return runTool({"devices", "add", file});
  }
  /// The names of the copies.
  [[nodiscard]] std::vector<std::string> recordings() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(root / "etc/hideventrouter/recordings"))
      names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }
  /// Adds a file to a root on a file system mounted with `option`. The command's output is followed
  /// by the names of the files left there.
  [[nodiscard]] Outcome addOn(const std::string& option, const fs::path& disk,
                              const std::string& file) const {
    fs::create_directories(disk);
    return run({"unshare", "-rm", "sh", "-c",
                "mount -t tmpfs -o mode=755," + option + " tmpfs '" + disk.string() + "'; '" +
                    builtPath("wlhid").string() + "' --root '" + disk.string() + "' devices add '" +
                    (directory / file).string() + "'; status=$?; find '" + disk.string() +
                    "' -type f; exit $status"},
               options());
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
  EXPECT_EQ(devices()[0]["source"], "replay k.hid");
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
  // An identical device is not added twice.
  EXPECT_EQ(add(directory / "a/m.hid").out, first.out);
  EXPECT_EQ(devices().size(), 4U);
  EXPECT_EQ(runTool({"devices", "add", directory / "a/m.hid", "--speed", "2"}).status, 0);
  EXPECT_EQ(devices().size(), 5U);
}

TEST_F(DevicesTest, ARecordingIsPlayedFromItsCopy) {
  fs::copy_file(sourcePath("recordings/qemu-usb-kbd.hid"), directory / "k.hid");
  fs::create_symlink(directory / "k.hid", directory / "link.hid");
  install();
  std::string id = add(directory / "link.hid").out;
  id.pop_back();
  const auto play = [&] { return runTool({"route", id, "--count", "3", "--json"}); };
  const Outcome first = play();
  EXPECT_EQ(first.status, 0) << first.err;
  writeFile(directory / "k.hid", "R: 2 05 01\nN: Another\n");
  EXPECT_EQ(play().out, first.out);
  fs::remove(directory / "k.hid");
  EXPECT_EQ(play().out, first.out);
  EXPECT_EQ(devices()[0]["name"], "QEMU QEMU USB Keyboard");
}

TEST_F(DevicesTest, TwoThatAreAddedAtOnceAreTwo) {
  std::vector<std::unique_ptr<Process>> adding;
  for (const char* name : {"a", "b", "c", "d"}) {
    writeFile(directory / name / "m.hid", "R: 2 05 01\nN: Of " + std::string(name) + "\n");
    adding.push_back(std::make_unique<Process>(
        wlhid({"devices", "add", directory / name / "m.hid"}), options()));
  }
  for (const auto& process : adding) EXPECT_EQ(process->wait(), 0) << process->errorOutput();
  std::set<std::string> names;
  for (const auto& device : devices()) names.insert(device["name"]);
  EXPECT_EQ(names, (std::set<std::string>{"Of a", "Of b", "Of c", "Of d"}));
  EXPECT_EQ(recordings().size(), 4U);
}

TEST_F(DevicesTest, WhatAnOlderVersionConfiguredCanBePutRightAsTheMessageSays) {
  writeFile(directory / "m.hid", "R: 2 05 01\nN: Mouse\n");
  writeFile(root / "etc/hideventrouter/-old one.plist",
            "<plist version=\"1.0\"><dict><key>Source</key><string>replay</string>"
            "<key>Recording</key><string>" +
                (directory / "m.hid").string() + "</string></dict></plist>");
  const std::string problem = runTool({"devices"}).err;
  EXPECT_NE(problem.find("remove this device and add its recording again ("), std::string::npos)
      << problem;
  const std::size_t begin = problem.rfind('(') + 1;
  const std::string advised = problem.substr(begin, problem.rfind(" removes it") - begin);
  const Outcome removed = run({"sh", "-c", advised}, options());
  EXPECT_EQ(removed.status, 0) << advised << ": " << removed.err;
  EXPECT_EQ(runTool({"devices"}).err, "");
  EXPECT_EQ(add(directory / "m.hid").status, 0);
  EXPECT_EQ(devices().size(), 1U);
}

TEST_F(DevicesTest, RemovingTakesTheCopyAlong) {
  const std::string first = addDevice("qemu-usb-kbd.hid");
  const std::string second = addDevice("qemu-usb-mouse.hid");
  EXPECT_EQ(runTool({"devices", "remove", first}).status, 0);
  EXPECT_EQ(recordings(), std::vector<std::string>{"qemu-usb-mouse.hid"});
  fs::remove(root / "etc/hideventrouter/recordings/qemu-usb-mouse.hid");
  EXPECT_EQ(runTool({"devices", "remove", second}).status, 0);
  EXPECT_EQ(runTool({"devices", "--json"}).out, "[]\n");
  EXPECT_TRUE(fs::exists(sourcePath("recordings/qemu-usb-mouse.hid")));
}

TEST_F(DevicesTest, AFullDiskLeavesNothing) {
  writeFile(directory / "large.hid", "R: 2 05 01\n#" + std::string(100'000, 'x') + "\n");
  // A limit on file sizes acts like a full disk and needs no privileges.
  const Outcome bounded = run({"prlimit", "--fsize=65536", builtPath("wlhid"), "--root", root,
                               "devices", "add", directory / "large.hid"},
                              options());
  EXPECT_TRUE(isRefusal(bounded, 1, "recordings: File too large")) << bounded.err;
  EXPECT_TRUE(recordings().empty());
  EXPECT_EQ(devices(), nlohmann::json::array());
  if (!canMount()) return;
  writeFile(directory / "small.hid", "R: 2 05 01\n");
  const fs::path full = directory / "disk";
  const Outcome large = addOn("size=64k", full, "large.hid");
  EXPECT_EQ(large.status, 1);
  EXPECT_EQ(large.err, "wlhid: " + (directory / "large.hid").string() + ": cannot be copied into " +
                           (full / "etc/hideventrouter/recordings").string() +
                           ": No space left on device\n");
  EXPECT_EQ(large.out, "");
  // Inodes for the root, two directories in it, the recordings' directory and the copy, but not for
  // a configuration.
  const Outcome small = addOn("nr_inodes=6", full, "small.hid");
  EXPECT_EQ(small.status, 1);
  EXPECT_NE(small.err.find("small.plist: cannot be written: No space left on device"),
            std::string::npos)
      << small.err;
  EXPECT_EQ(small.out, "");
}

TEST_F(DevicesTest, ARootThatCannotBeWrittenIsRefused) {
  addDevice("qemu-usb-kbd.hid");
  writeFile(directory / "m.hid", "R: 2 05 01\n");
  fs::permissions(directory, fs::perms(0755));
  const Outcome outcome = runToolAsNobody({"devices", "add", directory / "m.hid"});
  if (::geteuid() == 0) {
    EXPECT_TRUE(isRefusal(outcome, 1, "belongs to root")) << outcome.err;
  }
  fs::permissions(root / "etc/hideventrouter/recordings", fs::perms(0555));
  if (::geteuid() != 0) {
    EXPECT_TRUE(isRefusal(add(directory / "m.hid"), 1, "Permission denied"));
  }
  fs::permissions(root / "etc/hideventrouter/recordings", fs::perms(0755));
  EXPECT_EQ(recordings(), std::vector<std::string>{"qemu-usb-kbd.hid"});
  EXPECT_EQ(devices().size(), 1U);
}

TEST_F(DevicesTest, ADeviceWhoseRecordingIsGoneCanBeRemoved) {
  for (const char* name : {"one", "two", "three"}) {
    writeFile(directory / (name + std::string(".hid")), "R: 2 05 01\nN: Mouse\n");
  }
  const std::string id = add(directory / "one.hid").out;
  EXPECT_EQ(add(directory / "two.hid").status, 0);
  EXPECT_EQ(runTool({"devices", "add", directory / "three.hid", "--name", "Third"}).status, 0);
  for (const char* name : {"one", "two", "three"})
    fs::remove(root / "etc/hideventrouter/recordings" / (name + std::string(".hid")));
  const Outcome listed = runTool({"devices", "--json"});
  EXPECT_NE(listed.err.find("devices remove two removes it)"), std::string::npos) << listed.err;
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

TEST_F(DevicesTest, FilesThatAreNotRecordingsAreRefusedAndNothingIsSetUp) {
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
