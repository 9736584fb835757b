// SPDX-License-Identifier: Apache-2.0

#include "tool/report/ShownLines.h"

#include <gtest/gtest.h>

#include "jobd/LogTable.h"
#include "router-client/LogSites.h"
#include "router/LogTable.h"

namespace tool {
namespace {

using platform::LogLine;

constexpr std::string_view kRouterHead =
    "Nov 21 03:12:46 myhost com.quillmar.hideventrouter[345]: ";
constexpr std::string_view kShownHead =
    "Nov 21 03:12:46 <private> com.quillmar.hideventrouter[345]: ";

std::string shownLine(std::string_view line) {
  DeviceOrder devices;
  return shownLogLine(line, devices);
}

/// What is shown of a line of the router, without its head.
std::string shownText(std::string_view text) {
  const std::string shown = shownLine(std::string(kRouterHead).append(text));
  return shown.starts_with(kShownHead) ? shown.substr(kShownHead.size()) : "(unknown) " + shown;
}

bool isUnknown(std::string_view line) {
  return shownLine(line) == lineOfLength(line.size());
}

// ---- What is shown of a line

TEST(ShownLines, LiteralsAndShownValuesStayAndTheRestIsAMark) {
  EXPECT_EQ(shownText("session 3 (process 345, user 1000): routes device 0x100000abc (A Mouse) "
                      "exclusively"),
            "session 3 (process 345, user <private>): routes device 1 (<private>) exclusively");
  EXPECT_EQ(
      shownText("session 3 (process 345, user 0) is too slow: 12 more reports lost, 40 in all"),
      "session 3 (process 345, user <private>) is too slow: 12 more reports lost, 40 in all");
  EXPECT_EQ(
      shownText("session 1 (process 2, user 3): cannot route: Error Domain=HIDEventRouterDomain "
                "Code=-536870208 \"no device has the registry entry ID 0x5\" UserInfo={x}"),
      "session 1 (process 2, user <private>): cannot route: Error Domain=HIDEventRouterDomain "
      "Code=-536870208 <private>");
  EXPECT_EQ(shownText("router 1.0 started: root /home/somebody/root, 3 devices"),
            "router 1.0 started: root <private>, 3 devices");
  EXPECT_EQ(shownText("nobody is connected"), "nobody is connected");
  EXPECT_EQ(shownText("ignored: /etc/x.plist: malformed"), "ignored: <private>");
  EXPECT_EQ(shownText("cannot start com.quillmar.hideventrouter: its executable is missing"),
            "cannot start com.quillmar.hideventrouter: <private>");
  EXPECT_EQ(shownText("cannot start com.other: its executable is missing"),
            "cannot start <private>: <private>");
}

TEST(ShownLines, TheJobDaemonsLinesAreKnown) {
  EXPECT_EQ(shownLine("Nov  1 03:12:46 h wlhid-jobd[7]: com.quillmar.hideventrouter[345] ended by "
                      "signal 11"),
            "Nov  1 03:12:46 <private> wlhid-jobd[7]: com.quillmar.hideventrouter[345] ended by "
            "signal 11");
  EXPECT_EQ(
      shownLine("Nov  1 03:12:46 h wlhid-jobd[7]: permission to change "
                "com.quillmar.hideventrouter granted to process 12 (/opt/a b) of user 1000"),
      "Nov  1 03:12:46 <private> wlhid-jobd[7]: permission to change com.quillmar.hideventrouter "
      "granted to process 12 (<private>) of user <private>");
}

TEST(ShownLines, AValueThatIsNoLikelyOneIsPrivate) {
  EXPECT_EQ(shownText("9999999 sessions did not end in time"),
            "9999999 sessions did not end in time");
  EXPECT_EQ(shownText("10000000 sessions did not end in time"),
            "<private> sessions did not end in time");
  EXPECT_EQ(shownText("-1 sessions did not end in time"), "<private> sessions did not end in time");
  EXPECT_EQ(shownText("99999999999999999999 sessions did not end in time"),
            "<private> sessions did not end in time");
  EXPECT_EQ(shownText("router 4711.220.33 started: root x, 3 devices"),
            "router <private> started: root <private>, 3 devices");
}

TEST(ShownLines, CodesAreThoseOfErrors) {
  for (const std::int64_t code : {0LL, 260LL, -536870912LL, -536870208LL, -536866817LL})
    EXPECT_TRUE(isShownCode(code)) << code;
  for (const std::int64_t code : {-1LL, -536870913LL, -536866816LL, 10'000'000LL, 4711220033LL})
    EXPECT_FALSE(isShownCode(code)) << code;
}

TEST(ShownLines, VersionsAreThreeShortNumbersAtMost) {
  for (const char* version : {"0", "1.0", "999.999.999"}) EXPECT_EQ(shownVersion(version), version);
  for (const char* other : {"", ".", "1.", ".1", "1..2", "1000", "1.2.3.4", "1.0b", "MARK"})
    EXPECT_EQ(shownVersion(other), kPrivate) << other;
}

TEST(ShownLines, AJobsEndIsKnownToo) {
  EXPECT_EQ(shownEnd("exited with status 3"), "exited with status 3");
  EXPECT_EQ(shownEnd("ended by signal 11"), "ended by signal 11");
  EXPECT_EQ(shownEnd("could not be started: no such file"), "could not be started: <private>");
  EXPECT_EQ(shownEnd("ended by a person"), "<private>");
  EXPECT_EQ(shownEnd(""), "<private>");
}

TEST(ShownLines, DevicesAreCountedAsTheyCome) {
  DeviceOrder devices;
  EXPECT_EQ(devices.nameOf(77), "device 1");
  const std::string head(kRouterHead);
  EXPECT_TRUE(shownLogLine(head + "device 0x5 (a) has gone away", devices)
                  .ends_with("]: device 2 (<private>) has gone away"));
  EXPECT_TRUE(shownLogLine(head + "device 0x4d: x", devices).ends_with("]: device 1: <private>"));
}

// ---- Lines that are not the project's

TEST(ShownLines, AnUnknownLineIsItsLength) {
  EXPECT_EQ(shownLine(""), "<a line of 0 bytes>");
  EXPECT_EQ(shownLine("  goes on with 4711"), "<a line of 19 bytes>");
  for (const char* text : {"serial code 4711220033", "typed: hunter secret", "",
                           "nobody is connected.", "session 3 (process 4, user 5) begin",
                           "\xe2\x80\xa6 nobody is connected", " nobody is connected"})
    EXPECT_TRUE(isUnknown(std::string(kRouterHead).append(text))) << text;
}

TEST(ShownLines, AKnownTextAfterAnotherHeadIsUnknown) {
  const std::string text = "nobody is connected";
  EXPECT_FALSE(isUnknown("Nov 21 03:12:46 h com.quillmar.hideventrouter[345]: " + text));
  for (const char* head :
       {"", "Nov 21 03:12:46 h other[345]: ", "Nov 21 03:12:46 h <private>[345]: ",
        "Nov 21 03:12:46 h com.quillmar.hideventrouter[4711220033]: ",
        "Nov 21 03:12:46 h com.quillmar.hideventrouter[0345]: ",
        "Nov 21 03:12:46 h com.quillmar.hideventrouter[]: ",
        "Nov 21 03:12:46 h com.quillmar.hideventrouter[3] (1): ",
        "Nov 21 03:12:46 h com.quillmar.hideventrouter: ",
        "Nov 21 03:12:46  com.quillmar.hideventrouter[345]: ",
        "Nov 21 03:12:46 com.quillmar.hideventrouter[345]: ",
        "Nov 21 03:12:46 my host com.quillmar.hideventrouter[345]: ",
        "nov 21 03:12:46 h com.quillmar.hideventrouter[345]: ",
        "anF 21 03:12:46 h com.quillmar.hideventrouter[345]: ",
        "Nov 21 03:12.46 h com.quillmar.hideventrouter[345]: ",
        "Nov 2 03:12:46 h com.quillmar.hideventrouter[345]: ",
        "Nov 21 03:12:46\th com.quillmar.hideventrouter[345]: ",
        " Nov 21 03:12:46 h com.quillmar.hideventrouter[345]: "})
    EXPECT_TRUE(isUnknown(head + text)) << head << ": " << shownLine(head + text);
}

TEST(ShownLines, LinesOfTheTablesAreUnlike) {
  const auto all = [] {
    std::vector<const platform::LogTemplate*> rows(router::row::kTable.begin(),
                                                   router::row::kTable.end());
    rows.insert(rows.end(), jobd::row::kTable.begin(), jobd::row::kTable.end());
    return rows;
  }();
  for (const auto* row : all) {
    std::vector<platform::LogArgument> arguments;
    for (std::size_t i = 0; i < row->places(); ++i) {
      if (platform::isNumber(row->place(i)))
        arguments.emplace_back(std::uint64_t{7});
      else
        arguments.emplace_back(std::string_view("x"));
    }
    const std::string line = platform::renderLogTemplate(*row, arguments);
    const auto match = platform::recogniseLogLine(line, all);
    ASSERT_TRUE(match) << line;
    EXPECT_EQ(match->row, row) << line;
  }
}

// ---- The framework's own lines

platform::RecentLogLines::Line recent(const wlhid::LogSite& site,
                                      std::optional<std::int64_t> number = {}) {
  return {"2026-11-21T07:13:42.123456Z", "the whole line",
          std::string(site.function),    site.line,
          std::string(site.format),      number};
}

TEST(ShownRecentLines, AreTheirSitesLiteralsAndShownValues) {
  using namespace wlhid::site;  // NOLINT: the sites' names
  EXPECT_EQ(shownRecentLine(recent(openConnection)),
            "2026-11-21T07:13:42.123456Z <0> -[WLHIDEventRouterClient openConnection]:194 called");
  EXPECT_EQ(
      shownRecentLine(recent(setClientStatus, 3)),
      "2026-11-21T07:13:42.123456Z <0> -[WLHIDEventRouterClient setClientStatus:]:178 called, "
      "newClientStatus = 3");
  EXPECT_TRUE(
      shownRecentLine(recent(setStarted, 4711220033)).ends_with(", newStarted = <private>"));
  EXPECT_TRUE(
      shownRecentLine(recent(startError, -536870174)).ends_with(":271 Error(S): code -536870174"));
  EXPECT_TRUE(shownRecentLine(recent(startReply, 0)).ends_with("Open reply: code 0"));
  EXPECT_TRUE(shownRecentLine(recent(stopError)).ends_with("Error(ST): <private>"));
  EXPECT_TRUE(shownRecentLine(recent(receivedData, 7))
                  .ends_with("Received for reportID <private>: <private>"));
  EXPECT_TRUE(shownRecentLine(recent(receivedElementValues))
                  .ends_with("Received HID report <private>: usage=<private>, usagePage=<private>, "
                             "cookie=<private>, integerValue=<private>, bytes=<private>"));
}

TEST(ShownRecentLines, ALineOfNoSiteIsItsLength) {
  auto line = recent(wlhid::site::openConnection);
  line.sourceLine = 195;
  EXPECT_EQ(shownRecentLine(line), "<a line of 14 bytes>");
  line = recent(wlhid::site::openConnection);
  line.format = "called %d";
  EXPECT_EQ(shownRecentLine(line), "<a line of 14 bytes>");
  line = recent(wlhid::site::openConnection);
  line.function = "";
  EXPECT_EQ(shownRecentLine(line), "<a line of 14 bytes>");
}

// ---- In pieces

std::string inPieces(std::string_view whole, std::size_t size,
                     ShownLines::Source source = ShownLines::Source::SystemLog) {
  DeviceOrder devices;
  ShownLines lines(source, devices);
  std::string result;
  for (std::size_t at = 0; at < whole.size(); at += size)
    result += lines.feed(whole.substr(at, size));
  return result + lines.finish();
}

TEST(ShownLines, AreTheSameHoweverTheyCome) {
  const std::string known(kRouterHead);
  const std::string whole = known + "router ends\n\nkey 30\r\n" + known + "nobody is connected";
  const std::string expected = std::string(kShownHead) +
                               "router ends\n<a line of 0 bytes>\n<a line of 7 bytes>\n" +
                               std::string(kShownHead) + "nobody is connected\n";
  for (const std::size_t size : {1, 2, 3, 7, 1000}) EXPECT_EQ(inPieces(whole, size), expected);
  EXPECT_EQ(inPieces("", 1), "");
  EXPECT_EQ(inPieces("\n", 1), "<a line of 0 bytes>\n");
}

TEST(ShownLines, OfASourceThatIsUnknownNoLineIsKnown) {
  const std::string line = std::string(kRouterHead) + "router ends";
  EXPECT_EQ(inPieces(line, 5, ShownLines::Source::Unknown), lineOfLength(line.size()) + "\n");
}

TEST(ShownLines, ALineOfAnyLengthAndAnyBytesIsOneLine) {
  const std::string head(kRouterHead);
  for (const std::string& line :
       {std::string(10 << 20, 'x'), head + "ignored: " + std::string(10 << 20, 'x'),
        head + "ignored: " + std::string(3000, '\xff'), std::string(5, '\0')})
    EXPECT_EQ(inPieces(line + "\nnext\n", 65536),
              lineOfLength(line.size()) + "\n<a line of 4 bytes>\n");
  EXPECT_EQ(inPieces(head + std::string("ignored: \0x", 11), 7),
            std::string(kShownHead) + "ignored: <private>\n");
}

}  // namespace
}  // namespace tool
