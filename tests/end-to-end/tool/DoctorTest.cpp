// SPDX-License-Identifier: Apache-2.0

// wlhid doctor, as called by somebody for whom something does not work.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <stdexcept>

#include "Situations.h"

namespace test {
namespace {

namespace fs = std::filesystem;

class DoctorTest : public SituationTest {
 protected:
  /// Checks what all answers have in common, and returns the JSON document.
  [[nodiscard]] static nlohmann::json checked(const Outcome& text, const Outcome& json) {
    EXPECT_EQ(text.err, "");
    EXPECT_EQ(json.status, text.status) << json.err;
    const auto document = nlohmann::json::parse(json.out);
    const auto lines = linesOf(text.out);
    EXPECT_EQ(document["inOrder"], text.status == 0);
    EXPECT_EQ(lines.at(0), document["verdict"]);
    EXPECT_EQ(lines.size(), document["checks"].size() + 1) << text.out;
    EXPECT_EQ(text.out.find('\x1b'), std::string::npos) << "colours without a terminal";
    for (std::size_t i = 0; i < document["checks"].size(); ++i) {
      const auto& check = document["checks"][i];
      const bool failed = check["state"] == "failed";
      EXPECT_EQ(lines.at(i + 1).starts_with("FAIL"), failed) << lines.at(i + 1);
      EXPECT_EQ(check["remedy"].is_null(), !failed) << check;
      if (!check["command"].is_null()) {
        EXPECT_TRUE(
            check["remedy"].get<std::string>().ends_with(check["command"].get<std::string>()))
            << check;
      }
      EXPECT_EQ(lines.at(i + 1).find(" -> ") != std::string::npos, failed) << lines.at(i + 1);
    }
    return document;
  }
  [[nodiscard]] nlohmann::json doctor() const {
    return checked(runTool({"doctor"}), runTool({"doctor", "--json"}));
  }
  /// The names of the failed checks, with what they found.
  [[nodiscard]] static std::map<std::string, std::string> failures(const nlohmann::json& document) {
    std::map<std::string, std::string> found;
    for (const auto& check : document["checks"]) {
      if (check["state"] == "failed") found[check["name"]] = check["found"];
    }
    return found;
  }
  /// The command suggested for a failed check.
  [[nodiscard]] static std::string adviceFor(const nlohmann::json& document,
                                             std::string_view name) {
    for (const auto& check : document["checks"]) {
      if (check["name"] == name && check["state"] == "failed" && check["command"].is_string())
        return check["command"];
    }
    ADD_FAILURE() << "no command is suggested for " << name << ": " << document.dump(1);
    return "false";
  }
  /// Runs the command in a shell exactly as suggested, answering an authorization prompt.
  void follow(const std::string& advice, const ProcessOptions& with) const {
    const bool asks = advice.find(" install") != std::string::npos;
    const Outcome outcome = run({"sh", "-c", advice + (asks ? " --authorize allow" : "")}, with);
    EXPECT_EQ(outcome.status, 0) << advice << "\n" << outcome.out << outcome.err;
  }
  /// An ended process may take a moment to disappear.
  template <class Ask>
  static void waitUntilMended(std::string_view name, const Ask& ask) {
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    while (failures(ask()).contains(std::string(name))) {
      if (std::chrono::steady_clock::now() > deadline)
        throw std::runtime_error("the advice for " + std::string(name) + " did not help");
    }
  }
  [[nodiscard]] nlohmann::json doctorOnce() const {
    return nlohmann::json::parse(runTool({"doctor", "--json"}).out);
  }
  /// The check fails, and passes after its advice has been followed.
  void expectAdviceHelps(const std::string& name) const {
    const auto document = doctor();
    ASSERT_TRUE(failures(document).contains(name)) << document.dump(1);
    follow(adviceFor(document, name), options());
    waitUntilMended(name, [this] { return doctorOnce(); });
  }
  [[nodiscard]] std::vector<std::string> asNobody(std::vector<std::string> command) const {
    if (::geteuid() == 0)
      command.insert(command.begin(),
                     {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    return command;
  }
  void giveToNobody(const fs::path& path) const {
    fs::create_directories(path);
    if (::geteuid() == 0) {
      ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
    }
    ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
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
  EXPECT_EQ(adviceFor(document, "job"),
            builtPath("wlhid").string() + " --root " + root.string() + " install");
  EXPECT_FALSE(fs::exists(root)) << "asking has changed something";
  expectAdviceHelps("job");
}

TEST_F(DoctorTest, WithAnOutdatedRouter) {
  install();
  makeOutdated();
  const auto document = doctor();
  EXPECT_EQ(failures(document).size(), 1U);
  EXPECT_EQ(failures(document)["versions"],
            "version 0.9 is installed, this program carries " WLHID_VERSION);
  expectAdviceHelps("versions");
}

TEST_F(DoctorTest, WithANewerRouter) {
  install();
  becomeVersion("2.0");
  EXPECT_EQ(failures(doctor())["versions"],
            "version 2.0 is installed, this program carries " WLHID_VERSION);
  expectAdviceHelps("versions");
}

TEST_F(DoctorTest, OnARootWhoseNameNeedsQuotes) {
  root = directory / "it's $a `root`";
  expectAdviceHelps("job");
  EXPECT_TRUE(fs::exists(helperTool()));
}

TEST_F(DoctorTest, WithTheExecutableDeleted) {
  install();
  fs::remove(helperTool());
  EXPECT_EQ(failures(doctor())["installed copy"],
            helperTool().string() + ": No such file or directory");
  expectAdviceHelps("installed copy");
}

TEST_F(DoctorTest, WithAnExecutableThatIsNone) {
  install();
  writeFile(directory / "text", "no executable");
  fs::rename(directory / "text", helperTool());
  EXPECT_EQ(failures(doctor())["installed copy"],
            helperTool().string() + ": has no embedded property list");
  expectAdviceHelps("installed copy");
}

TEST_F(DoctorTest, WithADamagedJobFile) {
  install();
  writeFile(root / "Library/LaunchDaemons/com.quillmar.hideventrouter.plist", "no list");
  EXPECT_TRUE(failures(doctor())["job"].starts_with(
      (root / "Library/LaunchDaemons/com.quillmar.hideventrouter.plist").string() + ": "));
  expectAdviceHelps("job");
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
  expectAdviceHelps("job");
}

TEST_F(DoctorTest, WithALogThatCannotBeRead) {
  install();
  fs::create_directories(systemLog().parent_path());
  fs::remove(systemLog());
  fs::create_directory(systemLog());
  EXPECT_EQ(failures(doctor())["log"], systemLog().string() + ": not a regular file");
  expectAdviceHelps("log");

  writeFile(systemLog(), "secret");
  ASSERT_EQ(::chmod(systemLog().c_str(), 0), 0);
  ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
  const auto document = checked(runToolAsNobody({"doctor"}), runToolAsNobody({"doctor", "--json"}));
  EXPECT_EQ(failures(document)["log"], systemLog().string() +
                                           ": Permission denied; it belongs to user " +
                                           std::to_string(::geteuid()));
  follow(adviceFor(document, "log"), options());
  const Outcome after = runToolAsNobody({"doctor", "--json"});
  EXPECT_FALSE(failures(nlohmann::json::parse(after.out)).contains("log")) << after.out;
}

TEST_F(DoctorTest, ForAUserWhoMayNotConnect) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs a second user";
  install();
  giveToNobody(directory / "home");
  const auto document = checked(runToolAsNobody({"doctor"}), runToolAsNobody({"doctor", "--json"}));
  EXPECT_EQ(document["inOrder"], false);
  EXPECT_NE(failures(document)["system root"].find("belongs to user 0; this user, 65534, may "
                                                   "not connect"),
            std::string::npos)
      << document.dump(1);
  ProcessOptions own = options();
  own.environment.emplace_back("HOME", directory / "home");
  own.environment.emplace_back("XDG_STATE_HOME", "");
  const std::string advice = adviceFor(document, "system root");
  const Outcome outcome = run(asNobody({"sh", "-c", advice + " --authorize allow"}), own);
  EXPECT_EQ(outcome.status, 0) << advice << "\n" << outcome.err;
  const Outcome mended = run(asNobody({builtPath("wlhid"), "doctor"}), own);
  EXPECT_EQ(mended.status, 0) << mended.out << mended.err;
  const Outcome removed =
      run(asNobody({builtPath("wlhid"), "uninstall", "--authorize", "allow"}), own);
  EXPECT_EQ(removed.status, 0) << removed.err;
}

TEST_F(DoctorTest, WithAnEndpointThatItsOwnerMayNotUse) {
  giveToNobody(root);
  const Outcome installed = runToolAsNobody({"install", "--authorize", "allow"});
  ASSERT_EQ(installed.status, 0) << installed.err;
  ASSERT_EQ(::chmod((root / "var/run/com.quillmar.hideventrouter.sock").c_str(), 0), 0);
  const auto document = checked(runToolAsNobody({"doctor"}), runToolAsNobody({"doctor", "--json"}));
  EXPECT_TRUE(failures(document).contains("endpoint")) << document.dump(1);
  EXPECT_EQ(run(asNobody({"sh", "-c", adviceFor(document, "endpoint")}), options()).status, 0);
  EXPECT_EQ(runToolAsNobody({"doctor"}).status, 0);
  static_cast<void>(runToolAsNobody({"uninstall", "--authorize", "allow"}));
}

TEST_F(DoctorTest, WithoutTheOwnCopy) {
  install();
  fs::create_directories(directory / "app");
  fs::copy_file(builtPath("wlhid"), directory / "app/wlhid");
  const std::vector<std::string> command{directory / "app/wlhid", "--root", root, "doctor",
                                         "--json"};
  const auto document = nlohmann::json::parse(run(command, options()).out);
  EXPECT_TRUE(failures(document).contains("own copy")) << document.dump(1);
  EXPECT_TRUE(failures(document).contains("job daemon") || jobDaemons().size() == 1);
  fs::copy(builtPath("Contents"), directory / "app/Contents", fs::copy_options::recursive);
  EXPECT_EQ(run(command, options()).status, 0) << "installing the program again did not help";
}

TEST_F(DoctorTest, WithARouterThatEndsAtItsStart) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid");
  breakProgram();
  EXPECT_EQ(runTool({"route", id}).status, 1);
  const auto document = doctorOnce();
  const std::string name = "job com.quillmar.hideventrouter";
  EXPECT_EQ(failures(document)[name].find("it ended by signal 11"), 0U) << document.dump(1);
  const Outcome log = run({"sh", "-c", adviceFor(document, name)}, options());
  EXPECT_EQ(log.status, 0) << log.err;
  EXPECT_NE(log.out.find("ended by signal 11"), std::string::npos) << log.out;
}

TEST_F(DoctorTest, WithARunningRouterOfAnotherVersion) {
  install();
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--repeat"});
  Process routing(wlhid({"route", id, "--json"}), options());
  routing.waitForOutputContaining("report");
  makeOutdated();
  EXPECT_TRUE(failures(doctor()).contains("running router"));
  expectAdviceHelps("running router");
  EXPECT_EQ(routing.wait(), 1);
}

TEST_F(DoctorTest, WithAJobDaemonThatHangs) {
  install();
  ASSERT_EQ(jobDaemons().size(), 1U);
  ASSERT_EQ(::kill(jobDaemons().front(), SIGSTOP), 0);
  const auto document = doctorOnce();
  EXPECT_NE(failures(document)["job daemon"].find("did not answer in time"), std::string::npos)
      << document.dump(1);
  follow(adviceFor(document, "job daemon"), options());
  waitUntilMended("job daemon", [this] { return doctorOnce(); });
}

TEST_F(DoctorTest, WithABrokenDevice) {
  install();
  addDevice("qemu-usb-kbd.hid");
  writeFile(root / "etc/hideventrouter/broken.plist", "no list");
  const auto document = doctor();
  EXPECT_EQ(failures(document).size(), 1U);
  EXPECT_NE(failures(document)["devices"].find("broken.plist"), std::string::npos);
  // The list that it refers to says what to type.
  const std::string list = run({"sh", "-c", adviceFor(document, "devices")}, options()).err;
  const std::size_t begin = list.rfind('(') + 1;
  follow(list.substr(begin, list.rfind(" removes it") - begin), options());
  EXPECT_EQ(runTool({"doctor"}).status, 0) << "removing the device, as advised, did not help";
}

TEST_F(DoctorTest, WithAnEndpointOfSomebodyElse) {
  install();
  const fs::path endpoint = root / "var/run/com.quillmar.hideventrouter.sock";
  fs::remove(endpoint);
  writeFile(endpoint, "");
  EXPECT_EQ(failures(doctor())["endpoint"], endpoint.string() + ": not a socket");
  expectAdviceHelps("endpoint");
  EXPECT_TRUE(fs::exists(endpoint.string() + ".removed"));
}

TEST_F(DoctorTest, WithAnEndpointThatHasGone) {
  install();
  const std::string id = addDevice("qemu-usb-kbd.hid");
  fs::remove(root / "var/run/com.quillmar.hideventrouter.sock");
  expectAdviceHelps("endpoint");
  EXPECT_EQ(runTool({"route", id, "--count", "1"}).status, 0);
}

TEST_F(DoctorTest, WithoutTheJobDaemonsProgram) {
  ProcessOptions without = options();
  without.environment.emplace_back("WLHID_JOBD", "/no/such/program");
  const Outcome outcome = run(wlhid({"doctor", "--json"}), without);
  EXPECT_EQ(failures(nlohmann::json::parse(outcome.out))["job daemon"],
            "the job daemon's program /no/such/program: No such file or directory");
  install();  // with the program intact
  const Outcome running = run(wlhid({"doctor", "--json"}), without);
  EXPECT_FALSE(failures(nlohmann::json::parse(running.out)).contains("job daemon"))
      << "it runs, so its program no longer matters";
}

TEST_F(DoctorTest, OnAFullDisk) {
  EXPECT_FALSE(failures(doctor()).contains("disk")) << "this one has room";
  if (!canMount()) return;
  const Outcome outcome = runOnFullDisk("'" + builtPath("wlhid").string() + "' --root '" +
                                        (directory / "disk/root").string() + "' doctor");
  EXPECT_EQ(outcome.status, 1) << outcome.err;
  EXPECT_NE(outcome.out.find("FAIL  disk            full: "), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find(" -> free some space"), std::string::npos) << outcome.out;
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
