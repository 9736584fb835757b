// wlhid doctor, as somebody calls it for whom something does not work.
#include <sys/stat.h>
#include <unistd.h>

#include "Situations.h"

namespace test {
namespace {

namespace fs = std::filesystem;

class DoctorTest : public SituationTest {
 protected:
  /// Checks what every answer has, and returns it.
  [[nodiscard]] static nlohmann::json checked(const Outcome& text, const Outcome& json) {
    EXPECT_EQ(text.err, "");
    EXPECT_EQ(json.status, text.status) << json.err;
    const auto document = nlohmann::json::parse(json.out);
    const auto lines = linesOf(text.out);
    EXPECT_EQ(document["inOrder"], text.status == 0);
    EXPECT_EQ(lines.at(0), document["verdict"]);
    EXPECT_EQ(lines.size(), document["checks"].size() + 1) << text.out;
    EXPECT_EQ(text.out.find('\x1b'), std::string::npos) << "colours where there is no terminal";
    for (std::size_t i = 0; i < document["checks"].size(); ++i) {
      const auto& check = document["checks"][i];
      const bool failed = check["state"] == "failed";
      EXPECT_EQ(lines.at(i + 1).starts_with("FAIL"), failed) << lines.at(i + 1);
      EXPECT_EQ(check["remedy"].is_null(), !failed) << check;
      EXPECT_EQ(lines.at(i + 1).find(" -> ") != std::string::npos, failed) << lines.at(i + 1);
    }
    return document;
  }
  [[nodiscard]] nlohmann::json doctor() const {
    return checked(runTool({"doctor"}), runTool({"doctor", "--json"}));
  }
  /// The names of the checks that fail, with what they found.
  [[nodiscard]] static std::map<std::string, std::string> failures(const nlohmann::json& document) {
    std::map<std::string, std::string> found;
    for (const auto& check : document["checks"]) {
      if (check["state"] == "failed") found[check["name"]] = check["found"];
    }
    return found;
  }
};

TEST_F(DoctorTest, AllIsWell) {
  install();
  const auto document = doctor();
  EXPECT_EQ(document["inOrder"], true) << document.dump(1);
  EXPECT_EQ(document["verdict"], "The router is installed, current and in order.");
}

TEST_F(DoctorTest, WithoutARouter) {
  const auto document = doctor();
  EXPECT_EQ(document["verdict"], "The router is not installed: 1 of " +
                                     std::to_string(document["checks"].size()) + " checks fails.");
  EXPECT_EQ(failures(document).size(), 1U);
  EXPECT_EQ(failures(document)["job"], "there is no system root " + root.string());
  EXPECT_EQ(document["checks"][0]["remedy"], "install the router: wlhid install");
  EXPECT_FALSE(fs::exists(root)) << "asking has changed something";
}

TEST_F(DoctorTest, WithAnOutdatedRouter) {
  install();
  makeOutdated();
  const auto document = doctor();
  EXPECT_EQ(failures(document).size(), 1U);
  EXPECT_EQ(failures(document)["versions"], "version 0.9 is installed, this program carries 1.0");
  EXPECT_NE(runTool({"doctor"}).out.find("wlhid install"), std::string::npos);
}

TEST_F(DoctorTest, WithTheExecutableDeleted) {
  install();
  fs::remove(helperTool());
  EXPECT_EQ(failures(doctor())["installed copy"],
            helperTool().string() + ": No such file or directory");
}

TEST_F(DoctorTest, WithAnExecutableThatIsNone) {
  install();
  writeFile(directory / "text", "no executable");
  fs::rename(directory / "text", helperTool());
  EXPECT_EQ(failures(doctor())["installed copy"],
            helperTool().string() + ": has no embedded property list");
}

TEST_F(DoctorTest, WithADamagedJobFile) {
  install();
  writeFile(root / "Library/LaunchDaemons/com.quillmar.hideventrouter.plist", "no list");
  EXPECT_TRUE(failures(doctor())["job"].starts_with(
      (root / "Library/LaunchDaemons/com.quillmar.hideventrouter.plist").string() + ": "));
}

TEST_F(DoctorTest, WithAJobThatNamesAnotherProgramThanIsRun) {
  install();
  const fs::path job = root / "Library/LaunchDaemons/com.quillmar.hideventrouter.plist";
  const fs::path copy = directory / "copy";
  fs::copy_file(helperTool(), copy);
  std::string text = readFile(job);
  text.replace(text.find(helperTool().string()), helperTool().string().size(), copy.string());
  writeFile(job, text);
  EXPECT_TRUE(failures(doctor())["job"].starts_with(job.string() + ": it names the program " +
                                                    copy.string() + ", which is not the helper"));
  const Outcome status = runTool({"status"});
  EXPECT_EQ(status.status, 1);
  EXPECT_NE(status.out.find("it names the program " + copy.string()), std::string::npos)
      << status.out;
}

TEST_F(DoctorTest, WithALogThatCannotBeRead) {
  install();
  fs::create_directories(systemLog().parent_path());
  fs::remove(systemLog());
  fs::create_directory(systemLog());
  EXPECT_EQ(failures(doctor())["log"], systemLog().string() + ": not a regular file");
  fs::remove(systemLog());

  writeFile(systemLog(), "secret");
  ASSERT_EQ(::chmod(systemLog().c_str(), 0), 0);
  ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
  const auto document = checked(runToolAsNobody({"doctor"}), runToolAsNobody({"doctor", "--json"}));
  EXPECT_EQ(failures(document)["log"], systemLog().string() + ": Permission denied");
}

TEST_F(DoctorTest, WithABrokenDevice) {
  install();
  addDevice("qemu-usb-kbd.hid");
  writeFile(root / "etc/hideventrouter/broken.plist", "no list");
  const auto document = doctor();
  EXPECT_EQ(failures(document).size(), 1U);
  EXPECT_NE(failures(document)["devices"].find("broken.plist"), std::string::npos);
}

TEST_F(DoctorTest, WithAnEndpointOfSomebodyElse) {
  install();
  const fs::path endpoint = root / "var/run/com.quillmar.hideventrouter.sock";
  fs::remove(endpoint);
  writeFile(endpoint, "");
  EXPECT_EQ(failures(doctor())["endpoint"], endpoint.string() + ": not a socket");
}

TEST_F(DoctorTest, WithoutTheJobDaemonsProgram) {
  ProcessOptions without = options();
  without.environment.emplace_back("WLHID_JOBD", "/no/such/program");
  const Outcome outcome = run(wlhid({"doctor", "--json"}), without);
  EXPECT_EQ(failures(nlohmann::json::parse(outcome.out))["job daemon"],
            "the job daemon's program /no/such/program: No such file or directory");
}

TEST_F(DoctorTest, OnAFullDisk) {
  if (!canMount()) GTEST_SKIP() << "nothing may be mounted here";
  const Outcome outcome = runOnFullDisk("'" + builtPath("wlhid").string() + "' --root '" +
                                        (directory / "disk/root").string() + "' doctor");
  EXPECT_EQ(outcome.status, 1) << outcome.err;
  EXPECT_NE(outcome.out.find("FAIL  disk            full: "), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find(" -> make room"), std::string::npos) << outcome.out;
}

TEST_F(DoctorTest, OnADiskThatCannotBeAsked) {
  root = fs::path(std::string(300, 'x')) / "root";
  EXPECT_NE(failures(doctor())["disk"].find("File name too long"), std::string::npos);
}

TEST_F(DoctorTest, AFullStandardOutputIsAFailure) {
  ProcessOptions full = options();
  full.standardOutput = "/dev/full";
  EXPECT_TRUE(isRefusal(run(wlhid({"doctor"}), full), 1, "No space left on device"));
}

}  // namespace
}  // namespace test
