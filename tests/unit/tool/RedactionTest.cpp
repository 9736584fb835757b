#include "tool/report/Redaction.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/foundation/NSString.h"
#include "tests/support/TemporaryDirectory.h"

namespace tool {
namespace {

Redactor redactor() {
  Redactor::Knowledge knowledge;
  knowledge.secrets = {"QWERTZ", "QWERTZUIOP", "/media/My Disk/kbd.hid", "ab"};
  knowledge.registryEntryIDs = {0x100000abc};
  knowledge.root = "/home/u/wlhid/root";
  return Redactor(knowledge);
}

std::string text(std::string_view line) {
  return redactor().text(line);
}

TEST(Redaction, WordsStay) {
  EXPECT_EQ(text("the router ended unexpectedly (nobody is connected)"),
            "the router ended unexpectedly (nobody is connected)");
  EXPECT_EQ(text("a bad face, be it a cafe"), "a bad face, be it a cafe");
  EXPECT_EQ(text(""), "");
}

TEST(Redaction, WhatTheReferenceRouterWritesStays) {
  for (const char* line :
       {"session 3 (process 345, user 0): routes device 0x100000abc (A Mouse) for itself alone",
        "session 3 (process 345, user 0) is too slow: 12 more reports lost, 40 in all",
        "session 3 (process 345, user 0) begins", "refused: process 17 of user 1000",
        "ended by signal 9", "exited with status 1", "nobody is connected",
        "Error Domain=HIDEventRouterDomain Code=-536870174 \"it is taken\"", "error 0xe00002c0",
        "version 1.0 is installed, this program carries 0.9"}) {
    EXPECT_EQ(text(line), line);
  }
}

TEST(Redaction, OtherNumbersGo) {
  EXPECT_EQ(text("key 30 was pressed"), "key [removed] was pressed");
  EXPECT_EQ(text("integerValue=-5, cookie=3"), "integerValue=[removed], cookie=[removed]");
  EXPECT_EQ(text("routes device 0x100000abd"), "routes device [removed]");
  EXPECT_EQ(text("process 4d41524b, status 0x4d41524b303030"),
            "process [removed], status [removed]");
}

TEST(Redaction, ANumberThatStaysIsShort) {
  EXPECT_EQ(text("process 123456789012"), "process 123456789012");
  EXPECT_EQ(text("process 1234567890123"), "process [removed]");
  EXPECT_EQ(text("process -1.2. and process 1.2.."), "process -1.2. and process [removed]");
  EXPECT_EQ(text("process .5 and process -"), "process [removed] and process -");
  EXPECT_EQ(text("NSCocoaErrorDomain 260"), "NSCocoaErrorDomain 260");
  EXPECT_EQ(text("12"), "[removed]");
  EXPECT_EQ(text("12 ms"), "12 ms");
}

TEST(Redaction, ACodeThatStaysHasOneToEightDigits) {
  EXPECT_EQ(text("error 0x1, code 0xABCDEF12, status 0xf"),
            "error 0x1, code 0xABCDEF12, status 0xf");
  EXPECT_EQ(text("error 0x, error 0x123456789, error 0x1g"),
            "error [removed], error [removed], error [removed]");
  EXPECT_EQ(text("level 0x12"), "level [removed]");
}

TEST(Redaction, RowsOfBytesBeginAndEndWithWhatIsNoOrdinaryWord) {
  EXPECT_EQ(text("be ff fe be"), "be [removed] be");
  EXPECT_EQ(text("ff"), "ff");
  EXPECT_EQ(text("ff be"), "ff be");
  EXPECT_EQ(text("abc def"), "abc def") << "three letters are no bytes";
  EXPECT_EQ(text("abcd ef"), "[removed]");
  EXPECT_EQ(text("abcd"), "abcd");
  EXPECT_EQ(text("abcdefab"), "[removed]");
  EXPECT_EQ(text("abcdefabc"), "abcdefabc") << "half a byte";
  EXPECT_EQ(text("ff /home fe"), "ff /home fe");
  EXPECT_EQ(text("ff word fe fd"), "ff word [removed]");
}

TEST(Redaction, BytesGoInAnyForm) {
  EXPECT_EQ(text("report 4d41524b2d30303031 came"), "report [removed] came");
  EXPECT_EQ(text("report 4d 41 52 4b came"), "report [removed] came");
  EXPECT_EQ(text("report ff fe ee came"), "report [removed] came");
  EXPECT_EQ(text("report 01 ff FE 02 came"), "report [removed] came");
  EXPECT_EQ(text("report 01 be ad ff came"), "report [removed] came");
  EXPECT_EQ(text("report 01:ff:fe came"), "report [removed] came");
  EXPECT_EQ(text("bytes = 0x00010203 04050607 deadbeef ... 1e1f }"),
            "bytes = [removed] ... [removed] }");
  EXPECT_EQ(text("[1, 255, -3, 0]"), "[[removed]]");
  EXPECT_EQ(text("deadbeef alone"), "[removed] alone");
}

TEST(Redaction, SerialNumbersGo) {
  EXPECT_EQ(text("serial ABCDEF"), "serial [removed]");
  EXPECT_EQ(text("Serial number: ABC-DEF, model X"), "Serial number: [removed], model X");
  EXPECT_EQ(text("HID_UNIQ=ABCDEF S/N XYZ uniq \"QQQ\""),
            "HID_UNIQ=[removed] S/N [removed] uniq \"[removed]\"");
  EXPECT_EQ(text("device SN-0001-XY came"), "device [removed] came");
  EXPECT_EQ(text("serial-number-12 came"), "[removed] came");
}

TEST(Redaction, WhatAnnouncesASerialNumberStandsBesideIt) {
  EXPECT_EQ(text("serial is ABC DEF"), "serial is [removed] DEF");
  EXPECT_EQ(text("serial"), "serial");
  EXPECT_EQ(text("serial number"), "serial number");
  EXPECT_EQ(text("the number ABC"), "the number ABC");
  EXPECT_EQ(text("N ABC"), "N ABC");
  EXPECT_EQ(redactor().name("Pad serial12"), "Pad [removed]");
}

TEST(Redaction, OfSecretsTheLongerGoesFirst) {
  Redactor::Knowledge knowledge;
  knowledge.secrets = {"Disk", "My Disk here", "abc", "wxyz"};
  const Redactor rules(knowledge);
  EXPECT_EQ(rules.text("on My Disk here now"), "on [removed] now");
  EXPECT_EQ(rules.text("Disk, then Disk"), "[removed], then [removed]");
  EXPECT_EQ(rules.text("abc wxyz"), "abc [removed]") << "four bytes are enough";
}

TEST(Redaction, NeighboursThatAreRemovedBecomeOne) {
  EXPECT_EQ(text("x1, y2: z3; a4 - b5"), "[removed]");
  EXPECT_EQ(text("x1/y2"), "[removed]/[removed]");
  EXPECT_EQ(text("x1 and y2 "), "[removed] and [removed] ");
}

TEST(Redaction, KnownSecretsGoWhereverTheyStand) {
  EXPECT_EQ(text("xQWERTZUIOPx and QWERTZ"), "[removed] and [removed]");
  EXPECT_EQ(text("playing /media/My Disk/kbd.hid now"), "playing [removed] now");
  EXPECT_EQ(text("about ab"), "about ab") << "too short to be told from a word's part";
}

TEST(Redaction, OfPathsOnlyCommonComponentsStay) {
  EXPECT_EQ(text("cannot open /home/someone/secret/kbd.hid: No such file"),
            "cannot open /home/[removed]: No such file");
  EXPECT_EQ(redactor().path("/home/u/wlhid/root/var/log/system.log"), "<root>/var/log/system.log");
  EXPECT_EQ(redactor().path("/home/u/wlhid/rootless/var/log"),
            "/home/[removed]/wlhid/[removed]/var/log");
  EXPECT_EQ(redactor().path("/home/u/wlhid/root/etc/hideventrouter/My-Keyboard.plist"),
            "<root>/etc/hideventrouter/[removed]");
  EXPECT_EQ(redactor().path("/opt/x/Contents/Library/LaunchServices/com.quillmar.hideventrouter"),
            "/opt/[removed]/Contents/Library/LaunchServices/com.quillmar.hideventrouter");
  EXPECT_EQ(text("dev(/dev/hidraw3)"), "dev(/dev/[removed])");
  EXPECT_EQ(redactor().path(""), "");
  EXPECT_EQ(redactor().path("/home/u/wlhid/root"), "/home/[removed]/wlhid/root");
  EXPECT_EQ(redactor().path("./x/y/var//log/"), "./[removed]/var//log/");
  EXPECT_EQ(text("at /: /. a/home7 \"/home/x\"."), "at /: /. a/[removed] \"/home/[removed]\".");
  EXPECT_EQ(text("is at /var/log."), "is at /var/log.");
}

TEST(Redaction, TheSystemsOwnRootIsShownAsItIs) {
  Redactor::Knowledge knowledge;
  knowledge.root = "/";
  EXPECT_EQ(Redactor(knowledge).path("/var/log"), "/var/log");
  EXPECT_EQ(Redactor(Redactor::Knowledge()).path("/var/log"), "/var/log");
}

TEST(Redaction, TheHeaderOfALogLineStays) {
  EXPECT_EQ(redactor().logLine("Nov  1 03:12:45 host7 com.quillmar.hideventrouter[345]: key 30"),
            "Nov  1 03:12:45 host7 com.quillmar.hideventrouter[345]: key [removed]");
  EXPECT_EQ(redactor().logLine("Nov 21 03:12:45 host a[345] (8c7) x: y"),
            "Nov 21 03:12:45 host a[345] ([removed]) x: y");
  EXPECT_EQ(redactor().logLine("2026-11-21T07:13:42.123456Z <0> -[C setStarted:]:168 [Tag] "
                               "called, newStarted = 1"),
            "2026-11-21T07:13:42.123456Z <0> -[C setStarted:]:168 [Tag] called, newStarted = 1");
  EXPECT_EQ(redactor().logLine("2026-11-21T07:13:42.123456Z <0> f:1 key 30"),
            "2026-11-21T07:13:42.123456Z <0> f:1 key [removed]");
}

TEST(Redaction, WhatOnlyLooksLikeAHeaderDoesNotStay) {
  EXPECT_EQ(redactor().logLine("Nov X1 03:12:45 host a[3]: text"),
            "Nov [removed] host a[[removed]]: text");
  EXPECT_EQ(redactor().logLine("Nov 1 03:12:45 host se7en[3]: text"),
            "Nov [removed] host [removed][[removed]]: text");
  EXPECT_EQ(redactor().logLine("  continued 7"), "  continued [removed]");
  EXPECT_EQ(redactor().logLine("Nov 1 03:12:45 host a[3"), "Nov [removed] host a[[removed]");
  EXPECT_EQ(redactor().logLine("Nov 1 03:12:45 host a[3x]: text"),
            "Nov [removed] host a[[removed]]: text");
  EXPECT_EQ(redactor().logLine("Nov 1 03:12:45 host a"), "Nov [removed] host a");
  EXPECT_EQ(redactor().logLine("Nov 1 03:12:45"), "Nov [removed]");
  EXPECT_EQ(redactor().logLine("2026-11-21 07:13:42.123456Z <0> f:1 x").substr(0, 9), "[removed]");
  for (const char* line : {"2026-11-21T07:13:42.123456Z <0> f x", "2026-11-21T07:13:42.123456Z <0>",
                           "2026-11-21T07:13:42.123456Z", "2026-11-21T07:13:42.123456Z <0> f:1"})
    EXPECT_TRUE(redactor().logLine(line).starts_with("[removed]")) << line;
}

TEST(Redaction, TheTagsOfALogLineMayBeAnyAndNeedNotEnd) {
  const std::string head = "2026-11-21T07:13:42.123456Z <0> f:1 ";
  EXPECT_EQ(redactor().logLine(head + "[Tag 7] key 30"), head + "[Tag 7] key [removed]");
  EXPECT_EQ(redactor().logLine(head + "[7 key"), head + "[[removed] key");
  EXPECT_EQ(redactor().logLine(head), head);
}

TEST(Redaction, NamesKeepTheirDigits) {
  EXPECT_EQ(redactor().name("Wacom Intuos5 touch M"), "Wacom Intuos5 touch M");
  EXPECT_EQ(redactor().name("Pad QWERTZ7 serial AB12"), "Pad [removed] serial [removed]");
  const std::string longName = redactor().name(std::string(1 << 20, 'x'));
  EXPECT_LE(longName.size(), Redactor::kMaximumNameBytes + 3);
  const std::string accents = redactor().name("x" + [] {
    std::string text;
    while (text.size() < 1000) text += "é";
    return text;
  }());
  EXPECT_TRUE(platform::isValidUTF8(accents));
  const std::string cut =
      redactor().name(std::string(Redactor::kMaximumNameBytes - 3, 'x') + " QWERTZ");
  EXPECT_EQ(cut.find("QW"), std::string::npos) << cut;
}

TEST(Redaction, ANameIsCutBehind200BytesAndNotWithinACharacter) {
  EXPECT_EQ(redactor().name(std::string(200, 'x')), std::string(200, 'x'));
  EXPECT_EQ(redactor().name(std::string(201, 'x')), std::string(200, 'x') + "\u2026");
  EXPECT_EQ(redactor().name(std::string(199, 'x') + "\u00e9"), std::string(199, 'x') + "\u2026");
  EXPECT_EQ(redactor().name(std::string(198, 'x') + "\u00e9"), std::string(198, 'x') + "\u00e9");
  std::string secrets;
  while (secrets.size() < 3200) secrets += "QWERTZ  ";
  EXPECT_EQ(redactor().name(secrets), "[removed]  ") << "all of it has been looked at";
  EXPECT_EQ(redactor().name(secrets + "x"), "[removed]  \u2026");
}

TEST(Redaction, ControlCharactersGo) {
  EXPECT_EQ(text("a\x1b[31mb\x01"), "a\\[removed][[removed]\\[removed]");
}

TEST(Redaction, AVersionStaysOnlyWhereItIsOne) {
  EXPECT_EQ(redactor().version("1.0"), "1.0");
  EXPECT_EQ(redactor().version("MARK-0001"), "[removed]");
}

TEST(Redaction, LettingEverythingThroughDoes) {
  const Redactor nothing = Redactor::lettingEverythingThrough();
  EXPECT_FALSE(nothing.isActive());
  EXPECT_EQ(nothing.text("serial 1\x1b"), "serial 1\x1b");
  EXPECT_EQ(nothing.path("/a/b"), "/a/b");
  EXPECT_EQ(nothing.name("n 1"), "n 1");
  EXPECT_EQ(nothing.logLine("x 1"), "x 1");
}

// ---- In pieces

std::string inPieces(std::string_view whole, std::size_t size) {
  const Redactor rules = redactor();
  RedactedLines lines(rules);
  std::string result;
  for (std::size_t at = 0; at < whole.size(); at += size)
    result += lines.feed(whole.substr(at, size));
  return result + lines.finish();
}

TEST(RedactedLines, AreTheSameHoweverTheyCome) {
  const std::string whole = "serial ABC\n\nkey 30\r\nlast QWERTZ";
  const std::string expected = "serial [removed]\n\nkey [removed]\nlast [removed]";
  for (const std::size_t size : {1, 2, 3, 7, 100}) EXPECT_EQ(inPieces(whole, size), expected);
  EXPECT_EQ(inPieces("", 1), "");
  EXPECT_EQ(inPieces("a\n", 1), "a\n");
}

TEST(RedactedLines, CutALongLineBetweenWords) {
  std::string whole;
  while (whole.size() < (std::size_t{1} << 20)) whole += "word ";
  const std::string result = inPieces(whole + "\nnext\n", 4096);
  EXPECT_LT(result.size(), RedactedLines::kMaximumLineBytes + 100);
  EXPECT_TRUE(result.ends_with("word (the rest of a long line is left out)\nnext\n"));
  EXPECT_EQ(inPieces(std::string(1 << 20, 'x'), 4096), "(the rest of a long line is left out)");
}

TEST(RedactedLines, KeepALineOf16KiBWhole) {
  const std::string longest = std::string(RedactedLines::kMaximumLineBytes - 5, 'x') + " word";
  ASSERT_EQ(longest.size(), 16384U);
  EXPECT_EQ(inPieces(longest, 4096), longest);
  EXPECT_EQ(inPieces(longest + "s", 4096),
            longest.substr(0, longest.size() - 4) + "(the rest of a long line is left out)");
}

TEST(RedactedLines, EndWhereTheTextDoes) {
  const std::string whole = std::string("one\ntw") + '\0' + "S\0N\0\nmore\n";
  for (const std::size_t size : {1, 3, 100})
    EXPECT_EQ(inPieces(whole, size), "one\n(the rest is no text, and is left out)\n");
}

// ---- What is known

TEST(UniqueStrings, AreThoseThatTheKernelLists) {
  const testsupport::TemporaryDirectory directory;
  const auto add = [&](const std::string& device, const std::string& uevent) {
    std::filesystem::create_directories(directory.path() / device / "device");
    std::ofstream(directory.path() / device / "device/uevent") << uevent;
  };
  add("hidraw0", "HID_ID=0003:0000:0000\nHID_NAME=A\nHID_UNIQ=AB:CD:EF\n");
  add("hidraw1", "HID_UNIQ=\nUNIQ=\nXUNIQ=no\n");
  EXPECT_EQ(uniqueStringsOfDevices(directory.path()), std::vector<std::string>{"AB:CD:EF"});
  std::filesystem::remove_all(directory.path() / "hidraw0");
  add("hidraw2", "UNIQ=\"x\"\n");
  EXPECT_EQ(uniqueStringsOfDevices(directory.path()), std::vector<std::string>{"\"x\""});
  EXPECT_TRUE(uniqueStringsOfDevices(directory.path() / "none").empty());
}

}  // namespace
}  // namespace tool
