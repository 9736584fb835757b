// SPDX-License-Identifier: Apache-2.0

// wlhid devices, and which device a name or ID selects.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "router/Devices.h"
#include "tests/unit/tool/FakeRouter.h"
#include "tests/unit/tool/VerbTest.h"
#include "tool/command/Numbers.h"
#include "tool/routing/DeviceNames.h"

namespace tool {
namespace {

namespace fs = std::filesystem;
using testsupport::writeFile;

class DevicesTest : public VerbTest {
 protected:
  static Outcome devices(std::vector<std::string> more = {}) {
    more.insert(more.begin(), "devices");
    return run(addDevicesVerb, more);
  }
  [[nodiscard]] Outcome addText(const std::string& text, std::vector<std::string> more = {}) const {
    writeFile(directory_.path() / "m.hid", text);
    more.insert(more.begin(), {"add", (directory_.path() / "m.hid").string()});
    return devices(more);
  }
  static nlohmann::json listed() { return nlohmann::json::parse(devices({"--json"}).out); }
  /// The message of the exception.
  template <class Ask>
  static std::string refusal(const Ask& ask) {
    try {
      static_cast<void>(ask());
    } catch (const Failure& failure) {
      return failure.what();
    }
    return "none";
  }
  /// The only device's settings.
  [[nodiscard]] router::ReplayDevice setUp() const {
    const auto all = router::configuredReplayDevices(root_);
    return all.size() == 1 && all[0].device ? *all[0].device : router::ReplayDevice();
  }
};

TEST_F(DevicesTest, WithoutAnyTheListSaysHowToAddOne) {
  const Outcome outcome = devices();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "No devices. To set up a recording as one: wlhid devices add FILE\n");
  EXPECT_EQ(devices({"--json"}).out, "[]\n");
}

TEST_F(DevicesTest, TheListIsATable) {
  const std::string id = addText("R: 2 05 01\nN: Ma\u00fcs\nI: 3 0627 00a1\n").out.substr(0, 11);
  EXPECT_EQ(devices().out, "REGISTRY ENTRY ID   NAME  BUS:VENDOR:PRODUCT  SOURCE\n" + id +
                               "         Ma\u00fcs  0003:0627:00a1      replay m.hid\n");
  EXPECT_EQ(addText("R: 2 05 01\nN: " + std::string(41, 'x') + "\nI: 12345 0627 00a1\n").status, 0);
  const std::string table = devices().out;
  EXPECT_TRUE(table.starts_with("REGISTRY ENTRY ID   NAME" + std::string(38, ' ') + "BUS:"))
      << table;
  EXPECT_NE(table.find("  " + std::string(39, 'x') + "\u2026  "), std::string::npos) << table;
}

TEST_F(DevicesTest, TheListIsAnArrayForPrograms) {
  const std::string id = addText("R: 2 05 01\nN: Ma\u00fcs\nI: 3 0627 00a1\n").out;
  EXPECT_EQ(listed(),
            (nlohmann::json{{{"registryEntryID", *parseNumber(id.substr(0, id.size() - 1))},
                             {"name", "Ma\u00fcs"},
                             {"bus", 3},
                             {"vendor", 0x627},
                             {"product", 0xa1},
                             {"source", "replay m.hid"},
                             {"physicalPath", nullptr},
                             {"unique", nullptr},
                             {"interface", nullptr}}}));
  const std::string out = devices({"--json"}).out;
  EXPECT_TRUE(out.starts_with("[\n  {\n    \"registryEntryID\": ")) << out;
  EXPECT_NE(out.find("Ma\\u00fcs"), std::string::npos) << out;
}

TEST_F(DevicesTest, TheSystemsOwnRootHasTheComputersDevicesAndTakesNoRecordings) {
  platform::SystemRoot::setCurrent(platform::SystemRoot("/"));
  {
    const FakeRouter router(platform_, [](platform::ScriptedConnection& connection) {
      connection.deliverInvalidation();
    });
    EXPECT_TRUE(listed().is_array());
  }
  EXPECT_TRUE(
      isRefusal(addText("R: 2 05 01\n"), 1,
                "the system's own root has the computer's devices only; a recording becomes "
                "a device on a root of your own"));
}

TEST_F(DevicesTest, AddTakesTheSettings) {
  EXPECT_EQ(addText("R: 2 05 01\n", {"--speed", "2.5", "--repeat", "--name", "Mine"}).status, 0);
  EXPECT_EQ(setUp().speed, (router::ReplaySpeed{2.5, false}));
  EXPECT_TRUE(setUp().repeat);
  EXPECT_EQ(setUp().name, "Mine");
  EXPECT_EQ(setUp().recording, "m.hid");
}

TEST_F(DevicesTest, AddTakesOneOfSeveralDevices) {
  const Outcome added = addText("R: 2 05 01\nD: 3\nR: 2 05 0d\nN: Third\n", {"--device", "3"});
  EXPECT_EQ(added.status, 0) << added.err;
  EXPECT_EQ(setUp().device, 3U);
  EXPECT_EQ(listed()[0]["name"], "Third");
}

TEST_F(DevicesTest, AddWithoutSettingsPlaysOnceAsRecorded) {
  const Outcome outcome = addText("R: 2 05 01\nN: Its own\n");
  EXPECT_EQ(outcome.out, hexadecimal(listed()[0]["registryEntryID"]) + "\n");
  EXPECT_EQ(setUp().speed, router::ReplaySpeed());
  EXPECT_FALSE(setUp().repeat);
  EXPECT_EQ(setUp().name, "");
  EXPECT_EQ(setUp().device, 0U);
}

TEST_F(DevicesTest, AddRefusesWhatItCannotTake) {
  EXPECT_TRUE(isRefusal(devices({"add", "m.hid", "--speed", "0"}), 2,
                        "--speed: 0 is neither a number from 0.001 to 1000 nor max"));
  EXPECT_TRUE(isRefusal(devices({"add", "-"}), 2,
                        "a device is named after its file, so standard input cannot become one; "
                        "save it to a file first (wlhid route --recording - plays it directly)"));
}

TEST_F(DevicesTest, AProblemIsALineThatSaysHowToBeRidOfIt) {
  writeFile(root_.deviceSources() / "a b.plist", "no list");
  EXPECT_NE(devices().err.find("a b.plist"), std::string::npos);
  EXPECT_TRUE(devices().err.ends_with(" (wlhid devices remove 'a b' removes it)\n"))
      << devices().err;
  writeFile(root_.deviceSources() / "-c.plist", "no list");
  const Outcome outcome = devices();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_NE(outcome.err.find(" (wlhid devices remove 'a b' removes it)\n"), std::string::npos)
      << outcome.err;
  EXPECT_NE(outcome.err.find(" (wlhid devices remove name:-c removes it)\n"), std::string::npos)
      << outcome.err;
  EXPECT_TRUE(outcome.err.starts_with("wlhid: ")) << outcome.err;
}

TEST_F(DevicesTest, AProblemThatIsNoConfigurationsHasNoRemoval) {
  writeFile(root_.path(), "no directory");
  const Outcome outcome = devices();
  EXPECT_NE(outcome.err.find("is not a directory\n"), std::string::npos) << outcome.err;
  EXPECT_EQ(outcome.err.find("removes it"), std::string::npos) << outcome.err;
}

TEST_F(DevicesTest, OneVerbAtATimeIsTaken) {
  EXPECT_EQ(devices({"remove", "a", "add", "b"}).status, 2);
  EXPECT_EQ(devices({"add"}).status, 2);
  EXPECT_EQ(devices({"remove"}).status, 2);
  EXPECT_EQ(devices({"fly"}).status, 2);
}

TEST_F(DevicesTest, AnOptionMayFollowTheVerbBelow) {
  EXPECT_TRUE(isRefusal(devices({"remove", "a", "--json"}), 1,
                        "there is no recorded device \"a\" (wlhid devices lists them)"));
}

TEST_F(DevicesTest, RemoveTakesItAway) {
  const std::string id = addDevice("m.hid", "Mouse");
  EXPECT_TRUE(isRefusal(devices({"remove", "Mice"}), 1,
                        "there is no recorded device \"Mice\" (wlhid devices lists them)"));
  const Outcome outcome = devices({"remove", id});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_EQ(listed(), nlohmann::json::array());
}

// ---- Which device

TEST_F(DevicesTest, ANameThatTwoHaveMeansNone) {
  const std::string first = addDevice("a.hid", "Mouse");
  const std::string second = addDevice("b.hid", "Mouse");
  const std::string other = addDevice("c.hid", "12");
  const std::string several =
      "2 devices are called \"Mouse\"; use the registry entry ID (wlhid devices lists them)";
  EXPECT_EQ(refusal([] { return registryEntryIDOf("Mouse"); }), several);
  EXPECT_EQ(refusal([] { return configurationOf("Mouse"); }), several);
  EXPECT_EQ(registryEntryIDOf(second), *parseNumber(second));
  EXPECT_EQ(configurationOf(first), "a");
  EXPECT_EQ(configurationOf(second), "b");
  EXPECT_EQ(registryEntryIDOf("12"), *parseNumber(other)) << "a name takes precedence over an ID";
  EXPECT_EQ(configurationOf("12"), "c");
}

TEST_F(DevicesTest, AnIDNeedNotBeADevicesANameMust) {
  EXPECT_EQ(registryEntryIDOf("12"), 12U);
  EXPECT_EQ(registryEntryIDOf("id:0x12"), 0x12U);
  EXPECT_EQ(refusal([] { return registryEntryIDOf("name:12"); }),
            "no device is called \"12\" (wlhid devices lists them)");
  EXPECT_EQ(refusal([] { return configurationOf("12"); }),
            "there is no recorded device \"12\" (wlhid devices lists them)");
  EXPECT_EQ(refusal([] { return configurationOf("id:0"); }),
            "there is no recorded device \"id:0\" (wlhid devices lists them)");
}

TEST_F(DevicesTest, AConfigurationMayBeSaidByItsOwnName) {
  static_cast<void>(addDevice("a.hid", "b"));
  static_cast<void>(addDevice("b.hid", "Mouse"));
  EXPECT_EQ(configurationOf("a"), "a");
  EXPECT_EQ(configurationOf("b"), "a") << "a device's name comes first";
  writeFile(root_.deviceSources() / "broken.plist", "no list");
  EXPECT_EQ(configurationOf("broken"), "broken");
  EXPECT_EQ(refusal([] { return configurationOf(""); }),
            "there is no recorded device \"\" (wlhid devices lists them)")
      << "a device without a name does not match";
  EXPECT_EQ(refusal([] { return configurationOf("id:0"); }),
            "there is no recorded device \"id:0\" (wlhid devices lists them)")
      << "a device without an ID does not match";
}

}  // namespace
}  // namespace tool
