// SPDX-License-Identifier: Apache-2.0

// What docs/wire-protocol.md says around the bytes: the router's error codes, its methods, its
// limits and the keys of what it shows are those of its sources. (The bytes themselves are tested
// in tests/unit/xpc.)
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/xpc/NSXPCListener.h"
#include "router/RouterLimits.h"

namespace {

std::string readFromSource(const std::string& name) {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  std::ifstream in(std::filesystem::path(directory != nullptr ? directory : "") / name);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string page() {
  return readFromSource("docs/wire-protocol.md");
}

/// The numbers of router/RouterErrors.h.
std::set<std::int64_t> codes() {
  std::set<std::int64_t> found;
  std::istringstream header(readFromSource("router/RouterErrors.h"));
  for (std::string line; std::getline(header, line);)
    if (const auto at = line.find(" = -"); at != std::string::npos)
      found.insert(std::stoll(line.substr(at + 3)));
  return found;
}

/// As a row of the page's table begins.
std::string rowOf(std::int64_t code) {
  std::array<char, 64> row{};
  std::snprintf(row.data(), row.size(), "\n| `0x%08X` | −%lld | ", static_cast<unsigned>(code),
                static_cast<long long>(-code));
  return row.data();
}

TEST(WirePage, HasEveryErrorCodeAndNoOther) {
  const std::string text = page();
  for (const std::int64_t code : codes())
    EXPECT_NE(text.find(rowOf(code)), std::string::npos) << rowOf(code);
  std::size_t rows = 0;
  for (auto at = text.find("\n| `0x"); at != std::string::npos; at = text.find("\n| `0x", at + 1))
    ++rows;
  EXPECT_EQ(rows, codes().size());
  EXPECT_GE(rows, 9U);
}

/// String literals that are one capitalized word.
std::set<std::string> keysIn(const std::string& source) {
  std::istringstream text(readFromSource(source));
  std::set<std::string> found;
  std::string part;
  for (bool isQuoted = false; std::getline(text, part, '"'); isQuoted = !isQuoted) {
    const bool isWord = !part.empty() && std::isupper(static_cast<unsigned char>(part[0])) != 0 &&
                        std::ranges::all_of(part, [](unsigned char c) { return std::isalpha(c); });
    if (isQuoted && isWord) found.insert(part);
  }
  return found;
}

TEST(WirePage, HasEveryKeyOfWhatTheRouterShows) {
  const std::string text = page();
  std::size_t keys = 0;
  for (const char* source : {"router/StatusFormat.cpp", "router/ReportArrivals.cpp",
                             "router/control/DeviceListing.cpp"}) {
    for (const std::string& key : keysIn(source)) {
      EXPECT_NE(text.find("`" + key + "`"), std::string::npos) << source << ": " << key;
      ++keys;
    }
  }
  EXPECT_GE(keys, 25U);
}

std::vector<std::string> matchesOf(const std::string& pattern, const std::string& text) {
  const std::regex expression(pattern);
  std::vector<std::string> found;
  for (std::sregex_iterator each(text.begin(), text.end(), expression), end; each != end; ++each)
    found.push_back((*each)[1]);
  return found;
}

/// A protocol's name with its selectors, in their order on the wire.
using Protocol = std::pair<std::string, std::vector<std::string>>;

std::vector<Protocol> protocolsIn(const std::string& source) {
  const std::string text = readFromSource(source);
  const std::regex expression(R"re(xpcProtocol<[^>]*>\(\s*"(\w+)",\s*\{([^}]*)\})re");
  std::vector<Protocol> found;
  for (std::sregex_iterator each(text.begin(), text.end(), expression), end; each != end; ++each)
    found.emplace_back((*each)[1], matchesOf(R"re("([^"]+)")re", (*each)[2]));
  return found;
}

/// The rows of the protocol's table on the page, as "start routing request".
std::vector<std::string> rowsOf(const std::string& protocol) {
  const std::string text = page();
  const auto heading = text.find("\n`" + protocol + "`, exported by the ");
  if (heading == std::string::npos) return {};
  const auto begin = text.find("|---|", heading);
  std::vector<std::string> rows;
  for (const std::string& row : matchesOf(R"re(\n\| (\d+ \| [a-z ]+ \| [a-z]+) \|)re",
                                          text.substr(begin, text.find("\n\n", begin) - begin)))
    rows.push_back(row);
  return rows;
}

/// "3 | arrivals of device | request" for the fourth selector, arrivalsOfDevice:reply:, if the page
/// calls it "arrivals of device".
std::string rowFor(std::size_t number, const std::string& selector, const std::string& row) {
  const std::string name = std::regex_replace(row, std::regex(R"(^\d+ \| | \| [a-z]+$)"), "");
  std::string camel;
  for (std::size_t i = 0; i < name.size(); ++i)
    if (name[i] != ' ')
      camel += i > 0 && name[i - 1] == ' '
                   ? static_cast<char>(std::toupper(static_cast<unsigned char>(name[i])))
                   : name[i];
  const bool isRequest = selector.ends_with("reply:") || selector.ends_with("Reply:");
  return std::to_string(number) + " | " + (selector.starts_with(camel) ? name : selector) + " | " +
         (isRequest ? "request" : "message");
}

TEST(WirePage, HasEveryMethodWithItsNumberAndKind) {
  std::size_t methods = 0;
  for (const char* source :
       {"router-client/WLHIDEventRouterProtocols.cpp", "router/control/ControlProtocol.cpp",
        "router-client/WLHIDDeviceDirectoryProtocols.cpp"}) {
    for (const auto& [protocol, selectors] : protocolsIn(source)) {
      const std::vector<std::string> rows = rowsOf(protocol);
      ASSERT_EQ(rows.size(), selectors.size()) << protocol;
      for (std::size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(rows[i], rowFor(i, selectors[i], rows[i])) << protocol;
      methods += rows.size();
    }
  }
  EXPECT_EQ(methods, 13U);
}

TEST(WirePage, HasTheLimitsOfConnections) {
  const router::RouterLimits router;
  const platform::NSXPCListenerLimits listener;
  const std::string text = page();
  const auto hasRow = [&](const std::string& begin, std::size_t ofUser, std::size_t all) {
    const auto at = text.find("\n| " + begin);
    const std::string row = text.substr(at, text.find('\n', at + 1) - at);
    return row.find("| " + std::to_string(ofUser) + ", " + std::to_string(all) + ";") !=
           std::string::npos;
  };
  EXPECT_TRUE(hasRow("connections for input", router.sessionsPerUser, router.sessions));
  EXPECT_TRUE(hasRow("connections to one of our router's sockets", listener.connectionsOfUser,
                     listener.connections));
  EXPECT_TRUE(hasRow("connections to the control service", router.controlConnectionsPerUser,
                     router.controlConnections));
  EXPECT_EQ(router.directoryConnectionsPerUser, router.controlConnectionsPerUser);
  EXPECT_EQ(router.directoryConnections, router.controlConnections);
}

TEST(WirePage, HasExamplesThatFitOnAScreenOrTwo) {
  for (const char* name : {"examples/client.py", "examples/router.py"}) {
    const std::string text = readFromSource(name);
    EXPECT_LT(std::ranges::count(text, '\n'), 100) << name;
    EXPECT_GT(std::ranges::count(text, '\n'), 50) << name;
  }
}

}  // namespace
