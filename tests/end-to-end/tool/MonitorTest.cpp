// SPDX-License-Identifier: Apache-2.0

// wlhid monitor in a terminal emulator: keys are typed, and the screen is compared.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <regex>
#include <set>
#include <sstream>

#include "TerminalEmulator.h"
#include "ToolTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

bool isAscii(const std::string& text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool has(const std::string& screen, std::string_view text) {
  return screen.find(text) != std::string::npos;
}

/// The screen without what depends on the hour and on the machine's speed: the line with the
/// state's age, the one with the rate, and the time before each report.
std::string withoutTimes(const std::string& screen) {
  std::string text = std::regex_replace(screen, std::regex("since [^\n]*"), "since TIME");
  text = std::regex_replace(text, std::regex("[^\n]* reports/s[^\n]*"), " PACE");
  return std::regex_replace(text, std::regex("\n *\\+[0-9.]+ (µs|ms|s)  "), "\n TIME  ");
}

/// A pen that draws a zigzag in a quarter of a second, and then rests until only its path tells of
/// that: paths are kept longer than histories are wide.
std::string zigzag() {
  std::string text =
      "R: 55 05 0d 09 02 a1 01 09 42 09 44 09 32 15 00 25 01 75 01 95 03 81 02 95 05 81 01 "
      "05 01 09 30 09 31 26 e8 03 75 10 95 02 81 02 05 0d 09 30 26 ff 00 75 08 95 01 81 02 c0\n"
      "N: Zigzag\n";
  for (const char* const report :
       {"0.00 6 05 64 00 64 00 20", "0.05 6 05 c8 00 20 03 40", "0.10 6 05 2c 01 64 00 60",
        "0.15 6 05 90 01 20 03 80", "0.20 6 05 84 03 64 00 a0", "0.25 6 05 bc 02 20 03 c4",
        "3.25 6 05 bc 02 20 03 c4"})
    text += std::string("E: ") + report + "\n";
  return text;
}

/// -1 if there is none.
long numberBefore(std::string_view words, const std::string& screen) {
  const std::size_t end = screen.find(words);
  if (end == std::string::npos) return -1;
  const std::size_t begin = screen.find_last_not_of("0123456789", end - 1) + 1;
  return begin == end ? -1 : std::stol(screen.substr(begin, end - begin));
}

long reportsOn(const std::string& screen) {
  return numberBefore(" in all", screen);
}
long waitingOn(const std::string& screen) {
  return numberBefore(" wait", screen);
}

/// What a cell of the screen looks like: its colour and attributes as the terminal was told them.
/// "1 38;5;35" is bold, in colour 35.
class CellStyle {
 public:
  /// The parameters of an escape sequence: "0;1;38;5;35".
  void take(const std::string& parameters) {
    std::istringstream in(parameters);
    for (std::string each; std::getline(in, each, ';');) {
      if (each == "38") {
        std::string number;
        std::getline(in, number, ';');  // 5: of a palette
        std::getline(in, number, ';');
        colour_ = "38;5;" + number;
      } else if (each == "0") {
        *this = CellStyle();
      } else if (each == "39") {
        colour_.clear();
      } else if (each.size() == 1) {
        attributes_.insert(each[0]);
      } else if (each[0] == '3' || each[0] == '9') {
        colour_ = each;
      }
    }
  }
  [[nodiscard]] std::string text() const {
    const std::string attributes(attributes_.begin(), attributes_.end());
    return attributes + (attributes.empty() || colour_.empty() ? "" : " ") + colour_;
  }

 private:
  std::set<char> attributes_;
  std::string colour_;
};

/// The style of each character of a screen, its characters without their styles beside it.
struct StyledScreen {
  explicit StyledScreen(const std::string& captured) {
    CellStyle style;
    for (std::size_t at = 0; at < captured.size(); ++at) {
      if (captured.compare(at, 2, "\x1b[") == 0) {
        const std::size_t end = captured.find('m', at);
        style.take(captured.substr(at + 2, end - at - 2));
        at = end;
      } else {
        text += captured[at];
        styles.push_back(style.text());
      }
    }
  }
  [[nodiscard]] std::string styleOf(std::string_view words) const {
    const std::size_t at = text.find(words);
    return at == std::string::npos ? "(not there)" : styles[at];
  }
  /// Of the path, which alone is made of these dots.
  [[nodiscard]] std::set<std::string> stylesOfDots() const {
    std::set<std::string> found;
    for (std::size_t at = 0; at + 1 < text.size(); ++at) {
      const auto second = static_cast<unsigned char>(text[at + 1]);
      if (text[at] == '\xe2' && second >= 0xa0 && second <= 0xa3) found.insert(styles[at]);
    }
    return found;
  }

  std::string text;
  std::vector<std::string> styles;  // for each byte of the text
};

class MonitorTest : public ToolTest {
 protected:
  void SetUp() override { install(); }
  void TearDown() override {
    terminal_.reset();
    ToolTest::TearDown();
  }

  TerminalEmulator& monitor(const std::vector<std::string>& arguments,
                            TerminalEmulator::Size size = {},
                            const std::vector<std::pair<std::string, std::string>>& more = {}) {
    ProcessOptions environment = options();
    environment.environment.insert(environment.environment.end(),
                                   {{"LC_ALL", "C.UTF-8"}, {"NO_COLOR", ""}});
    std::vector<std::string> command = shell_;
    command.insert(command.end(), {"env", "-C", directory.string()});
    for (const auto& [name, value] : more)
      command.push_back(std::string(name).append("=").append(value));
    std::vector<std::string> verb{"monitor"};
    verb.insert(verb.end(), arguments.begin(), arguments.end());
    for (const std::string& word : wlhid(verb)) command.push_back(word);
    terminal_ =
        std::make_unique<TerminalEmulator>(directory / "terminal", command, environment, size);
    return *terminal_;
  }
  struct Colours {
    std::string title;
    std::string routing;
    std::set<std::string> dots;
  };
  /// A pen's screen in a terminal of that kind: four levels of pressure, however few colours.
  void expectColours(const std::vector<std::pair<std::string, std::string>>& environment,
                     const Colours& expected) {
    auto& terminal = monitor({addDevice("pen.hid", {"--repeat"})}, {120, 40}, environment);
    const StyledScreen shown(terminal.awaitStyled([&](const std::string& captured) {
      const StyledScreen screen(captured);
      return has(screen.text, "routing Example Pen") && screen.stylesOfDots() == expected.dots;
    }));
    EXPECT_EQ(shown.styleOf("wlhid monitor"), expected.title);
    EXPECT_EQ(shown.styleOf("routing Example Pen"), expected.routing);
  }
  void expectEnded(int status) {
    const std::string screen = terminal_->await("ended ");
    EXPECT_NE(screen.find("ended " + std::to_string(status)), std::string::npos) << screen;
    EXPECT_TRUE(terminal_->isRestored()) << screen;
  }
  /// What the router says of who has which device.
  void awaitSessions(const std::function<bool(const std::string& sessions)>& isWanted) const {
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    std::string sessions;
    do {
      sessions = runTool({"sessions"}).out;
      if (isWanted(sessions)) return;
    } while (std::chrono::steady_clock::now() < deadline);
    ADD_FAILURE() << "the sessions do not become what is expected:\n" << sessions;
  }
  std::string addTablet() { return addDevice("qemu-usb-tablet.hid", {"--repeat"}); }

  std::vector<std::string> shell_;  ///< the words of one that runs the command, if any does
  std::unique_ptr<TerminalEmulator> terminal_;
};

TEST_F(MonitorTest, ShowsADeviceAndLeavesTheTerminalAsItWas) {
  auto& terminal = monitor({addTablet()});
  const std::string screen = terminal.await([](const std::string& shown) {
    return shown.find(" lost") != shown.npos && shown.find("▸") != shown.npos;
  });
  for (const char* const expected :
       {"wlhid monitor  QEMU QEMU USB Tablet", "routing QEMU QEMU USB Tablet since ", "reports/s",
        "jitter", " 0 lost", "─ Elements ─", " Button 1", " X ", " Wheel", "─ Path of X, Y ─",
        "Keys and buttons, ", "□ Button 2", "─ Reports, the latest first ─", "? help"})
    EXPECT_NE(screen.find(expected), std::string::npos) << expected << " is missing:\n" << screen;
  terminal.type("q");
  expectEnded(0);
}

TEST_F(MonitorTest, PausesAndSteps) {
  auto& terminal = monitor({addTablet()});
  terminal.await([](const std::string& shown) { return reportsOn(shown) > 0; });
  terminal.type("p");
  const long waiting = waitingOn(terminal.await(" wait"));
  // One frame later: a screen may be read while only its first lines are new.
  const long before = reportsOn(
      terminal.await([&](const std::string& shown) { return waitingOn(shown) > waiting; }));
  terminal.type("s");
  terminal.await([&](const std::string& shown) { return reportsOn(shown) == before + 1; });
  terminal.type("s");
  terminal.await([&](const std::string& shown) { return reportsOn(shown) == before + 2; });
  terminal.type("p");
  terminal.awaitGone("PAUSED");
  terminal.await([&](const std::string& shown) { return reportsOn(shown) > before + 10; });
}

/// Each time when the pen has rested for a while, the same screen comes again. What is logged
/// meanwhile does not show.
TEST_F(MonitorTest, TheWholeScreenIsAsDrawn) {
  const std::string expected =
      readFile(sourcePath("tests/end-to-end/tool/golden/monitor-120x40.txt"));
  writeFile(directory / "zigzag.hid", zigzag());
  auto& terminal = monitor({addDevice((directory / "zigzag.hid").string(), {"--repeat"})},
                           {120, 40}, {{"KQ_LOG_LEVEL", "0"}});
  const auto isAsExpected = [&](const std::string& shown) {
    return withoutTimes(shown) == expected;
  };
  terminal.await(isAsExpected);
  terminal.resize({120, 41});  // the rows that are the same are drawn again, too
  terminal.await([](const std::string& shown) { return std::ranges::count(shown, '\n') == 41; });
  terminal.resize({120, 40});
  terminal.await(isAsExpected);
}

TEST_F(MonitorTest, MeasuresTheLatency) {
  auto& terminal = monitor({addTablet()});
  terminal.await("  latency ");
  terminal.type("x");  // the routing begins anew, and so do the figures
  terminal.awaitGone("  latency ");
  terminal.await("  latency ");
}

TEST_F(MonitorTest, ExplainsItsKeysAndChangesTheView) {
  auto& terminal = monitor({addTablet()});
  terminal.await("─ Elements");
  terminal.type("?");
  terminal.await("pause the screen, and go on");
  terminal.type("?");
  terminal.await("─ Elements");
  terminal.type("Tab");
  terminal.await("─ Devices (1)");
  terminal.type("Tab");
  terminal.awaitGone("─ Devices");
  terminal.type("Tab");
  terminal.awaitGone("─ Elements");
  terminal.type("Escape");
  terminal.await("─ Reports");
}

TEST_F(MonitorTest, FollowsPluggingAndUnplugging) {
  auto& terminal = monitor({});
  terminal.await("none is connected");
  addDevice("qemu-usb-mouse.hid", {"--repeat"});
  terminal.await("QEMU QEMU USB Mouse");
  const std::string keyboard = addDevice("qemu-usb-kbd.hid", {"--repeat"});
  terminal.await("Devices (2)");
  ASSERT_EQ(runTool({"devices", "remove", keyboard}).status, 0);
  terminal.await("unplugged: QEMU QEMU USB Keyboard");
  terminal.await([](const std::string& shown) {
    return has(shown, "Devices (1)") && has(shown, ">QEMU QEMU USB Mouse");
  });
  terminal.type("Enter");
  terminal.await("routing QEMU QEMU USB Mouse");
  terminal.type("C-c");
  expectEnded(0);
}

TEST_F(MonitorTest, ChoosesADevice) {
  addDevice("qemu-usb-mouse.hid", {"--repeat", "--name", "One"});
  addDevice("qemu-usb-tablet.hid", {"--repeat", "--name", "Other"});
  auto& terminal = monitor({}, {120, 40});
  const bool isOneFirst = has(terminal.await([](const std::string& shown) {
    return has(shown, "Devices (2)") && ((has(shown, ">One") && has(shown, " Other")) ||
                                         (has(shown, " One") && has(shown, ">Other")));
  }),
                              ">One");
  terminal.type("Down");
  terminal.await(isOneFirst ? ">Other" : ">One");
  terminal.type("Enter");
  terminal.await(isOneFirst ? "routing Other" : "routing One");
  terminal.type("Up");
  terminal.await(isOneFirst ? "●Other" : "●One");
  terminal.type("Enter");
  terminal.await(isOneFirst ? "routing One" : "routing Other");
}

TEST_F(MonitorTest, FollowsTheTerminalsSize) {
  auto& terminal = monitor({addTablet()});
  terminal.await("routing");
  terminal.resize({120, 40});
  terminal.await("─ Devices (1) ─");
  terminal.resize({300, 100});
  const std::string large = terminal.await("x exclusive  Tab view  Up/Down choose");
  EXPECT_EQ(std::ranges::count(large, '\n'), 100);
  terminal.resize({30, 6});
  terminal.await("too small; q quits");
  terminal.resize({80, 24});
  terminal.await("─ Reports, the latest first ─");
  terminal.type("q");
  expectEnded(0);
}

TEST_F(MonitorTest, EverySignalLeavesTheTerminalAsItWas) {
  const std::string id = addTablet();
  for (const auto& [signal, status] :
       {std::pair{SIGINT, 0}, std::pair{SIGTERM, 0}, std::pair{SIGHUP, 0},
        std::pair{SIGQUIT, 128 + SIGQUIT}, std::pair{SIGABRT, 128 + SIGABRT}}) {
    auto& terminal = monitor({id});
    terminal.await("routing QEMU");
    ::kill(terminal.process(), signal);
    expectEnded(status);
    terminal_.reset();
    fs::remove_all(directory / "terminal");
  }
}

TEST_F(MonitorTest, StopsAtCtrlZAndGoesOnInTheForeground) {
  shell_ = {"sh", "-c", R"(set -m; "$@"; echo "stopped $?"; read line; fg >/dev/null)", "sh"};
  auto& terminal = monitor({addTablet()});
  terminal.await("routing QEMU");
  terminal.type("C-z");
  const std::string screen = terminal.await("stopped " + std::to_string(128 + SIGTSTP));
  EXPECT_FALSE(has(screen, "routing QEMU")) << screen;
  terminal.type("Enter");
  const long before = reportsOn(terminal.await("routing QEMU"));
  terminal.await([&](const std::string& shown) { return reportsOn(shown) > before; });
  terminal.type("q");
  expectEnded(0);
}

TEST_F(MonitorTest, RecordsWhatCanBePlayedAgain) {
  auto& terminal = monitor({addTablet(), "--sensitive"}, {120, 40});
  terminal.await([](const std::string& shown) { return reportsOn(shown) > 0; });
  terminal.type("r");
  terminal.await("RECORDING 1");  // or more than ten
  terminal.type("r");
  terminal.await(".hid: ");
  terminal.awaitGone("RECORDING");
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(directory))
    if (entry.path().extension() == ".hid") files.push_back(entry.path());
  ASSERT_EQ(files.size(), 1U);
  EXPECT_TRUE(files[0].filename().string().starts_with("QEMU-QEMU-USB-Tablet-")) << files[0];
  EXPECT_EQ(fs::status(files[0]).permissions(), fs::perms(0600)) << "it may hold what was typed";
  const Outcome again = runTool({"route", "--recording", files[0], "--speed", "max"});
  EXPECT_EQ(again.status, 0) << again.err;
  EXPECT_NE(again.out.find("X="), std::string::npos) << again.out;
}

TEST_F(MonitorTest, RecordsNoSecretsUnasked) {
  auto& terminal = monitor({addDevice("qemu-usb-kbd.hid", {"--repeat"})}, {120, 40});
  terminal.await([](const std::string& shown) { return reportsOn(shown) > 0; });
  terminal.type("r");
  terminal.await("sensitive: a recording would hold all its input");
  EXPECT_EQ(terminal.screen().find("RECORDING"), std::string::npos);
}

TEST_F(MonitorTest, TakesADeviceExclusivelyAndGivesItBack) {
  auto& terminal = monitor({addTablet()});
  terminal.await([](const std::string& shown) { return reportsOn(shown) > 0; });
  awaitSessions([](const std::string& sessions) {
    return has(sessions, "QEMU USB Tablet") && !has(sessions, "exclusively");
  });
  terminal.type("x");
  const long before = reportsOn(terminal.await("EXCLUSIVE"));
  awaitSessions(
      [](const std::string& sessions) { return has(sessions, "QEMU USB Tablet, exclusively"); });
  terminal.await([&](const std::string& shown) { return reportsOn(shown) > before + 5; });
  terminal.type("x");
  terminal.awaitGone("EXCLUSIVE");
  awaitSessions([](const std::string& sessions) {
    return has(sessions, "QEMU USB Tablet") && !has(sessions, "exclusively");
  });
}

TEST_F(MonitorTest, GoesOnAfterTheRoutersDeath) {
  auto& terminal = monitor({addTablet()});
  const long before =
      reportsOn(terminal.await([](const std::string& shown) { return reportsOn(shown) > 0; }));
  const auto status = nlohmann::json::parse(runTool({"status", "--json"}).out);
  const pid_t router = status["router"]["pid"];
  ASSERT_GT(router, 0) << status;
  ::kill(router, SIGKILL);
  // 744 lines of the recording: more than were there before, from another router.
  terminal.await([&](const std::string& shown) {
    return reportsOn(shown) > before + 50 && shown.find("routing QEMU") != shown.npos;
  });
  terminal.type("q");
  expectEnded(0);
}

TEST_F(MonitorTest, WaitsForARouterAndThenKnowsTheElements) {
  const std::string id = addTablet();
  ASSERT_EQ(runTool({"uninstall", "--authorize", "allow"}).status, 0);
  auto& terminal = monitor({id});
  terminal.await("waiting for the router");
  install();
  terminal.await("routing QEMU QEMU USB Tablet");
  terminal.await(" Wheel ");
}

TEST_F(MonitorTest, NamesDoNotReachTheTerminalAsTheyAre) {
  auto& terminal =
      monitor({addDevice("qemu-usb-mouse.hid", {"--repeat", "--name", "\u009b31m\u202e\u2066x"})});
  const std::string screen = terminal.await("routing");
  EXPECT_NE(screen.find("\\u202e\\u2066x"), std::string::npos) << screen;
  EXPECT_EQ(screen.find("\u202e"), std::string::npos);
}

TEST_F(MonitorTest, IsAsciiWhereTheLocaleIs) {
  auto& terminal = monitor({addTablet()}, {}, {{"LC_ALL", "C"}});
  const std::string screen = terminal.await("- Elements -");
  EXPECT_TRUE(isAscii(screen)) << screen;
}

TEST_F(MonitorTest, IsAsciiWhereSomebodyWantsIt) {
  auto& terminal = monitor({addTablet(), "--ascii"});
  EXPECT_TRUE(isAscii(terminal.await("- Elements -")));
}

TEST_F(MonitorTest, HasThePalettesColoursWhereThereAreMany) {
  expectColours({{"TERM", "tmux-256color"}},
                {"17 38;5;38", "1 38;5;35", {"38;5;24", "38;5;31", "38;5;38", "38;5;51"}});
}

TEST_F(MonitorTest, TellsLevelsApartByAttributesWhereColoursAreFew) {
  expectColours({{"TERM", "tmux"}}, {"17 36", "1 32", {"2 34", "34", "36", "1 36"}});
}

TEST_F(MonitorTest, HasNoColoursWhereTheTerminalHasNone) {
  expectColours({{"TERM", "vt100"}}, {"17", "1", {"", "1"}});
}

TEST_F(MonitorTest, HasNoColoursWhereSomebodyWantsNone) {
  expectColours({{"TERM", "tmux-256color"}, {"NO_COLOR", "1"}}, {"17", "1", {"2", "", "1"}});
}

TEST_F(MonitorTest, ADumbTerminalGetsLines) {
  auto& terminal = monitor({addTablet()}, {}, {{"TERM", "dumb"}});
  terminal.await("+ QEMU QEMU USB Tablet (0x");
  terminal.await("routing QEMU QEMU USB Tablet; ");
  terminal.await("reports/s");
  ::kill(terminal.process(), SIGTERM);
  expectEnded(0);
}

TEST_F(MonitorTest, APipeGetsLinesUntilTheRecordingEnds) {
  const std::string id = addDevice("qemu-usb-mouse.hid", {"--speed", "max"});
  const Outcome outcome = runTool({"monitor", id});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_NE(outcome.out.find("routing QEMU QEMU USB Mouse"), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("ended"), std::string::npos) << outcome.out;
  EXPECT_TRUE(isHarmless(outcome.out));
}

TEST_F(MonitorTest, DrawsAPicture) {
  const std::string id = addDevice("qemu-usb-tablet.hid", {"--speed", "max"});
  const fs::path file = directory / "monitor.svg";
  const Outcome outcome = runTool({"monitor", id, "--svg", file, "--after", "100"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const std::string svg = readFile(file);
  EXPECT_TRUE(svg.starts_with("<svg ")) << svg.substr(0, 100);
  EXPECT_NE(svg.find("routing\u00a0QEMU\u00a0QEMU\u00a0USB\u00a0Tablet"), std::string::npos);
  EXPECT_NE(svg.find("Path\u00a0of\u00a0X,\u00a0Y"), std::string::npos);
}

TEST_F(MonitorTest, DrawsARecordingTheSameEachTime) {
  const fs::path recording = fs::path(std::getenv("WLHID_SOURCE_DIR")) / "recordings/pen.hid";
  const fs::path file = directory / "monitor.svg";
  std::string before;
  for (int time = 0; time < 2; ++time) {
    const Outcome outcome =
        runTool({"monitor", "--recording", recording, "--svg", file, "--after", "200"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    const std::string svg = readFile(file);
    EXPECT_NE(svg.find("recorded\u00a0in\u00a0pen.hid"), std::string::npos) << svg;
    EXPECT_NE(svg.find("200\u00a0in\u00a0all"), std::string::npos) << svg;
    EXPECT_TRUE(before.empty() || svg == before);
    before = svg;
  }
}

/// Recordings of real devices that are kept beside the source tree.
TEST_F(MonitorTest, DrawsEveryRecording) {
  const fs::path shared = sourcePath("../shared/recordings");
  if (!fs::exists(shared)) GTEST_SKIP() << "no recordings beside the source tree";
  std::size_t drawn = 0;
  for (const auto& entry : fs::directory_iterator(shared)) {
    if (entry.path().extension() != ".hid") continue;
    const fs::path file = directory / "monitor.svg";
    const Outcome outcome = runTool({"monitor", "--recording", entry.path(), "--svg", file});
    EXPECT_EQ(outcome.status, 0) << entry.path() << outcome.err;
    const std::string svg = readFile(file);
    for (const char* const expected : {"\u00a0in\u00a0all", "─\u00a0Elements", "─\u00a0Reports"})
      EXPECT_NE(svg.find(expected), std::string::npos) << entry.path() << expected;
    EXPECT_EQ(svg.find(">0\u00a0in\u00a0all"), std::string::npos) << entry.path();
    ++drawn;
  }
  EXPECT_GT(drawn, 3U);
}

TEST_F(MonitorTest, SaysWhatIsWrongWithACommandLine) {
  const std::string either = "--recording goes with --svg, in place of a DEVICE";
  EXPECT_TRUE(isRefusal(runTool({"monitor", "--recording", "x.hid"}), 2, either));
  EXPECT_TRUE(
      isRefusal(runTool({"monitor", "1", "--svg", "x.svg", "--recording", "x.hid"}), 2, either));

  EXPECT_TRUE(isRefusal(runTool({"monitor", "nothing"}), 1, "no device is called \"nothing\""));
  EXPECT_TRUE(isRefusal(runTool({"monitor", "--svg", "x.svg"}), 2, "--svg needs a DEVICE"));
  EXPECT_TRUE(isRefusal(runTool({"monitor", "1", "--size", "80"}), 2, "--size"));
  EXPECT_TRUE(isRefusal(runTool({"monitor", "1", "--size", "10x5"}), 2, "from 40x10 to 500x500"));
  EXPECT_TRUE(isRefusal(runTool({"monitor", "1", "--after", "-1"}), 2, "--after"));
  EXPECT_TRUE(isRefusal(runTool({"monitor", "1", "--seconds", "-1"}), 2, "--seconds"));
}

}  // namespace
}  // namespace test
