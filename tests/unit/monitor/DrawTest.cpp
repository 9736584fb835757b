// SPDX-License-Identifier: Apache-2.0

// Whole screens, compared with those in golden/. What was drawn instead is left in the build
// directory, to be looked at and, if it is right, copied.
#include "tool/monitor/Draw.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "Devices.h"

namespace tool::monitor {
namespace {

namespace fs = std::filesystem;

constexpr Look kPlain{false, true};
constexpr Look kColourless{true, false};

/// The characters, and below each row the styles of those that are not usual.
std::string withStyles(const Screen& screen) {
  constexpr std::string_view kColours = " qgwba1234";
  std::string text = screen.text() + "\n";
  for (int row = 0; row < screen.rows(); ++row) {
    std::string line;
    for (int column = 0; column < screen.columns(); ++column) {
      const Style style = screen.at(row, column).style;
      char mark = kColours[static_cast<std::size_t>(style.colour)];
      if (style.isDim) mark = 'd';
      if (style.isBold && mark == ' ') mark = 'B';
      if (style.isReverse) mark = 'R';
      line += mark;
    }
    line.resize(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

void expectGolden(const std::string& name, const std::string& drawn) {
  const char* const source = std::getenv("WLHID_SOURCE_DIR");
  ASSERT_NE(source, nullptr) << "run this test through ctest";
  std::ifstream in(fs::path(source) / "tests/unit/monitor/golden" / (name + ".txt"));
  const std::string expected{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (drawn == expected) return;
  fs::create_directories(GOLDEN_OUTPUT);
  const fs::path output = fs::path(GOLDEN_OUTPUT) / (name + ".txt");
  std::ofstream(output) << drawn;
  ADD_FAILURE() << name << " is drawn differently, see " << output << ":\n" << drawn;
}

class DrawTest : public testing::Test {
 protected:
  DrawTest() {
    shown_.devices = {{1, "Example Pen", "Pen", "ordinary", "routing"},
                      {2, "Example Keyboard", "Keyboard", "sensitive", "ask admin"},
                      {3, "Example Mouse", "Mouse", "sensitive", "no"}};
    shown_.cursor = 1;
  }
  void open(DeviceModel& model, const std::string& name) {
    shown_.open = 1;
    shown_.name = name;
    shown_.model = &model;
    shown_.reports = model.reports().latest();
    shown_.health = Health::Good;
    shown_.state = "routing";
    shown_.since = "12:03:04 (5 s)";
    shown_.now = 2000_ms;
    shown_.lost = Losses();
  }
  [[nodiscard]] Screen drawn(int rows, int columns, Look look = {}) const {
    Screen screen(rows, columns, look);
    draw(shown_, screen);
    return screen;
  }
  [[nodiscard]] std::string text(int rows, int columns, Look look = {}) const {
    return drawn(rows, columns, look).text();
  }

  Shown shown_;
};

class PenTest : public DrawTest {
 protected:
  PenTest() {
    drawEllipse(pen_);
    open(pen_, "Example Pen");
  }
  DeviceModel pen_{penDescriptor()};
};

TEST_F(DrawTest, TheListOfDevices) {
  expectGolden("devices-80x24", withStyles(drawn(24, 80)));
  shown_.devices.clear();
  shown_.noDevices = "waiting for the router";
  EXPECT_NE(text(24, 80).find("waiting for the router"), std::string::npos);
}

TEST_F(DrawTest, ALongListFollowsTheCursor) {
  for (int i = 4; i < 100; ++i)
    shown_.devices.push_back(
        {static_cast<std::uint64_t>(i), "Pen " + std::to_string(i), "Pen", "ordinary", "yours"});
  EXPECT_EQ(text(24, 80).find("Pen 99"), std::string::npos);
  shown_.cursor = shown_.devices.size() - 1;
  EXPECT_NE(text(24, 80).find(">Pen 99"), std::string::npos) << text(24, 80);
}

TEST_F(PenTest, At80x24) {
  expectGolden("pen-80x24", text(24, 80));
}
TEST_F(PenTest, At120x40) {
  expectGolden("pen-120x40", text(40, 120));
}
TEST_F(PenTest, At300x100) {
  expectGolden("pen-300x100", text(100, 300));
}
TEST_F(PenTest, WithItsStyles) {
  expectGolden("pen-styles-80x24", withStyles(drawn(24, 80)));
}
TEST_F(PenTest, WithoutColours) {
  expectGolden("pen-colourless-80x24", withStyles(drawn(24, 80, kColourless)));
}
TEST_F(PenTest, WithoutUnicode) {
  for (const auto& [rows, columns] : {std::pair{24, 80}, std::pair{40, 120}, std::pair{100, 300}})
    expectGolden("pen-ascii-" + std::to_string(columns) + "x" + std::to_string(rows),
                 text(rows, columns, kPlain));
}

TEST_F(PenTest, TheLatencyOnceItIsKnown) {
  shown_.latency = LatencyFigures{100, 1234_us, 12345_us, 20000_us};
  const std::string latency = "  latency 1.23 ms (99 % 12.35 ms)";
  EXPECT_NE(text(24, 80).find("every 8.00 ms, jitter 0 µs" + latency), std::string::npos)
      << text(24, 80);
  EXPECT_NE(text(40, 120).find("99 % within 8.00 ms, jitter 0 µs" + latency), std::string::npos)
      << text(40, 120);
}

TEST_F(PenTest, EachViewAlone) {
  for (const auto& [view, name] :
       {std::pair{View::Elements, "elements"}, std::pair{View::Path, "path"},
        std::pair{View::Board, "board"}, std::pair{View::Reports, "reports"}}) {
    shown_.view = view;
    expectGolden(std::string("pen-") + name + "-80x24", text(24, 80));
  }
}

TEST_F(PenTest, WhatIsDoneWithIt) {
  shown_.isPaused = shown_.isRecording = shown_.isExclusive = true;
  shown_.waiting = 17;
  shown_.recorded = 250;
  shown_.lost = Losses{3, false};
  shown_.leftOut = 2;
  const std::string screen = text(24, 80);
  EXPECT_NE(screen.find("PAUSED 17 wait  RECORDING 250  EXCLUSIVE"), std::string::npos) << screen;
  EXPECT_NE(screen.find("250 in all, 3 lost, 2 not shown"), std::string::npos) << screen;
}

TEST_F(PenTest, LossesMayBeThoseOfOthers) {
  shown_.lost = Losses{3, true};
  const std::string counts = " 250 in all, 3 lost, by all sessions together";
  EXPECT_NE(text(40, 120).find("jitter 0 µs  "), std::string::npos) << text(40, 120);
  EXPECT_NE(text(40, 120).find(counts), std::string::npos) << text(40, 120);
  shown_.since = "12:03:04 (5 min), and long before";
  EXPECT_NE(text(24, 80).find("since 12:03:04 (5 min), …" + counts), std::string::npos)
      << text(24, 80);
}

TEST_F(PenTest, WhatIsNotKnownIsLeftOut) {
  shown_.lost.reset();
  EXPECT_EQ(text(24, 80).find("lost"), std::string::npos);
}

TEST_F(PenTest, AMessageStandsInPlaceOfTheKeys) {
  EXPECT_NE(text(24, 80).find("? help"), std::string::npos);
  shown_.message = "recorded pen.hid";
  EXPECT_NE(text(24, 80).find("recorded pen.hid"), std::string::npos);
  EXPECT_EQ(text(24, 80).find("? help"), std::string::npos);
}

TEST_F(PenTest, Help) {
  shown_.hasHelp = true;
  expectGolden("help-80x24", text(24, 80));
}

TEST_F(DrawTest, AKeyboard) {
  DeviceModel keyboard(keyboardDescriptor());
  keyboard.take(0_ms, Bytes{0x00, 0x00, 0x00});
  keyboard.take(1900_ms, Bytes{0x02, 0x04, 0x05});
  open(keyboard, "Example Keyboard");
  expectGolden("keyboard-80x24", withStyles(drawn(24, 80)));
  expectGolden("keyboard-ascii-80x24", text(24, 80, kPlain));
}

TEST_F(DrawTest, AMouse) {
  DeviceModel mouse(mouseDescriptor());
  for (int i = 0; i < 100; ++i)
    mouse.take(20_ms * i, Bytes{static_cast<std::uint8_t>(i < 90 ? 0 : 1), 5, 0xfd, 0});
  open(mouse, "Example Mouse");
  expectGolden("mouse-80x24", text(24, 80));
}

TEST_F(DrawTest, NamesFromADeviceAreHarmless) {
  DeviceModel pen(penDescriptor());
  open(pen, "\x1b[2J\u202e");
  shown_.devices[0].name = "\x1b]0;t\a\n";
  shown_.message = "\x1b[1m";
  for (const int columns : {80, 120}) {
    const std::string screen = text(24, columns);
    EXPECT_EQ(screen.find('\x1b'), std::string::npos);
    EXPECT_EQ(screen.find('\a'), std::string::npos);
    EXPECT_NE(screen.find("\\x1b[2J\\u202e"), std::string::npos) << screen;
  }
}

TEST_F(PenTest, EverySizeIsDrawn) {
  for (const Look look : {Look{}, kPlain, kColourless})
    for (int rows = 0; rows < 60; rows += 3)
      for (int columns = 0; columns < 250; columns += 11) {
        const Screen screen = drawn(rows, columns, look);
        EXPECT_EQ(screen.rows(), rows);
      }
  EXPECT_EQ(text(5, 30), "too small; q quits\n\n\n\n\n");
}

}  // namespace
}  // namespace tool::monitor
