// SPDX-License-Identifier: Apache-2.0

// Which folder may include what: the dependencies in docs/architecture.md, checked in every source.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Rule {
  std::string_view folder;
  std::vector<std::string_view> mayInclude;  // prefixes of include paths
};

const std::vector<Rule>& rules() {
  static const std::vector<Rule> all = {
      {"platform/foundation/", {"platform/foundation/"}},
      {"platform/kit/", {"platform/kit/", "platform/foundation/"}},
      {"platform/services/", {"platform/services/", "platform/foundation/"}},
      {"platform/xpc/",
       {"platform/xpc/", "platform/kit/", "platform/foundation/",
        "platform/services/ServiceEndpoints.h"}},
      {"platform/signing/", {"platform/signing/", "platform/foundation/"}},
      {"platform/scripted/", {"platform/"}},
      {"platform/system/",
       {"platform/system/", "platform/foundation/", "platform/services/FileDescriptor.h"}},
      {"WLHIDAccess/", {"WLHIDAccess/", "platform/"}},
      {"helper-install/", {"helper-install/", "WLHIDAccess/", "platform/"}},
      {"router-client/", {"router-client/", "WLHIDAccess/", "platform/"}},
      {"diagnostics/", {"diagnostics/", "WLHIDAccess/", "platform/"}},
      {"input/",
       {"input/", "WLHIDAccess/", "router-client/WLHIDDeviceDirectoryProtocols.h",
        "router-client/WLHIDEventRouterProtocols.h", "platform/"}},
      {"c/",
       {"c/", "WLHIDAccess/", "platform/foundation/PrintableText.h",
        "platform/services/FileDescriptor.h"}},
      {"jobd/", {"jobd/", "helper-install/MachO.h", "platform/"}},
      {"router/",
       {"router/", "router-client/WLHIDDeviceDirectoryProtocols.h",
        "router-client/WLHIDEventRouterProtocols.h", "platform/"}},
      {"router/hidraw/",
       {"router/hidraw/", "router/policy/DeviceClass.h", "router/Devices.h", "router/DeviceFiles.h",
        "router/RouterLimits.h", "router/StopSignal.h", "platform/foundation/",
        "platform/services/"}},
      // What an application sees; and, because the command also sets up and inspects a root, how
      // devices are set up and named, what the router reports about itself and how it is asked, and
      // the tables of log lines; and because it explains devices and recordings as the router sees
      // them, how both are read and judged.
      {"tool/",
       {"tool/",
        "WLHIDAccess/",
        "platform/",
        "diagnostics/",
        "input/RouterVersions.h",
        "input/UsageNames.h",
        "router/Devices.h",
        "router/DeviceFiles.h",
        "router/ReportArrivals.h",
        "router/RouterErrors.h",
        "router/RouterLimits.h",
        "router/RouterStatus.h",
        "router/control/ControlProtocol.h",
        "router/control/DeviceListing.h",
        "router/DescriptorItems.h",
        "router/Recording.h",
        "router/ReportDecoder.h",
        "router/ReportDescriptor.h",
        "router/policy/DeviceClass.h",
        "router/LogTable.h",
        "jobd/LogTable.h",
        "router-client/LogSites.h"}},
      {"testkit/",
       {"testkit/", "WLHIDAccess/", "platform/", "router-client/WLHIDEventRouterProtocols.h"}},
      // One of them is a router, another one an application's own test.
      {"examples/",
       {"examples/", "WLHIDAccess/", "testkit/", "router-client/WLHIDEventRouterProtocols.h",
        "platform/"}},
  };
  return all;
}

fs::path sourceDirectory() {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  return directory != nullptr ? fs::path(directory) : fs::path();
}

std::vector<fs::path> sourcesOf(const fs::path& folder) {
  std::vector<fs::path> found;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string extension = entry.path().extension();
    if (extension == ".h" || extension == ".cpp") found.push_back(entry.path());
  }
  return found;
}

/// The included paths in quotes.
std::vector<std::string> includesOf(const fs::path& file) {
  constexpr std::string_view kBegin = "#include \"";
  std::vector<std::string> found;
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with(kBegin))
      found.push_back(line.substr(kBegin.size(), line.rfind('"') - kBegin.size()));
  }
  return found;
}

/// The files that include a header of the system's.
std::vector<std::string> usersOf(std::string_view header, const fs::path& source) {
  const std::string line = "#include <" + std::string(header) + ">";
  std::vector<std::string> found;
  for (const Rule& rule : rules()) {
    for (const fs::path& file : sourcesOf(source / rule.folder)) {
      std::ifstream in(file);
      for (std::string each; std::getline(in, each);) {
        if (each == line) found.push_back(fs::relative(file, source));
      }
    }
  }
  std::ranges::sort(found);
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

bool isAllowed(const Rule& rule, const std::string& include) {
  return std::ranges::any_of(
      rule.mayInclude, [&](std::string_view beginning) { return include.starts_with(beginning); });
}

TEST(Includes, FollowTheAllowedDirections) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty()) << "WLHID_SOURCE_DIR is not set; run this test through ctest";
  std::size_t checked = 0;
  for (const Rule& rule : rules()) {
    for (const fs::path& file : sourcesOf(source / rule.folder)) {
      for (const std::string& include : includesOf(file)) {
        EXPECT_TRUE(isAllowed(rule, include)) << file << " must not include " << include;
        ++checked;
      }
    }
  }
  EXPECT_GT(checked, 100U) << "hardly anything was found to check";
}

TEST(Includes, MakeUseOfEachPermission) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty());
  for (const Rule& rule : rules()) {
    std::vector<std::string> all;
    for (const fs::path& file : sourcesOf(source / rule.folder))
      std::ranges::copy(includesOf(file), std::back_inserter(all));
    for (const std::string_view permission : rule.mayInclude) {
      const auto isUse = [&](const std::string& include) {
        return include.starts_with(permission);
      };
      EXPECT_TRUE(std::ranges::any_of(all, isUse))
          << rule.folder << " may include " << permission << ", but nothing in it does";
    }
  }
}

/// An application must not need the library that this folder is built with. Of the command, only
/// what finds out about a system asks it.
TEST(Includes, OnlyThePrivilegedProgramsAndTheCommandsFindingsAskTheSystemsAuthorities) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty());
  for (const Rule& rule : rules()) {
    if (rule.folder == "platform/system/" || rule.folder == "jobd/" || rule.folder == "router/")
      continue;
    for (const fs::path& file : sourcesOf(source / rule.folder)) {
      if (file.parent_path() == source / "tool/findings") continue;
      for (const std::string& include : includesOf(file))
        EXPECT_FALSE(include.starts_with("platform/system/")) << file << ": " << include;
    }
  }
}

TEST(Includes, AreWrittenFromTheRootOfTheRepository) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty());
  for (const Rule& rule : rules()) {
    for (const fs::path& file : sourcesOf(source / rule.folder)) {
      for (const std::string& include : includesOf(file))
        EXPECT_TRUE(fs::exists(source / include)) << file << ": " << include;
    }
  }
}

TEST(Includes, OneFileKnowsLibudev) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty());
  EXPECT_EQ(usersOf("libudev.h", source), std::vector<std::string>{"router/hidraw/UdevTree.cpp"});
}

TEST(Includes, OneFileKnowsCurses) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty());
  EXPECT_EQ(usersOf("curses.h", source), std::vector<std::string>{"tool/monitor/FullScreen.cpp"});
}

bool hasStateOfAThread(const fs::path& file) {
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    if (line.substr(0, line.find("//")).find("thread_local") != std::string::npos) return true;
  }
  return false;
}

/// A queue's work may continue on another thread. Only C's interface has no other place for the
/// words of a failure and the strings that it hands out until the next call.
TEST(Threads, HaveNoStateOfTheirOwnExceptInTheCInterface) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty());
  std::set<std::string> found;
  for (const Rule& rule : rules()) {
    for (const fs::path& file : sourcesOf(source / rule.folder)) {
      if (hasStateOfAThread(file)) found.insert(fs::relative(file, source));
    }
  }
  EXPECT_EQ(found, (std::set<std::string>{"c/Failures.cpp", "c/router.cpp"}));
}

std::string withoutCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

TEST(Names, DifferInMoreThanCase) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty());
  std::map<std::string, fs::path> seen;
  for (auto entry = fs::recursive_directory_iterator(source);
       entry != fs::recursive_directory_iterator(); ++entry) {
    const std::string name = entry->path().filename();
    if (name == ".git" || name == "out" || name == "build") {
      entry.disable_recursion_pending();
      continue;
    }
    const auto [other, isNew] = seen.try_emplace(withoutCase(entry->path()), entry->path());
    EXPECT_TRUE(isNew) << entry->path() << ", " << other->second;
  }
  EXPECT_GT(seen.size(), 100U) << "hardly anything was found to check";
}

TEST(Includes, ARuleRefusesWhatItDoesNotName) {
  const Rule rule{"router/", {"router/", "platform/"}};
  EXPECT_TRUE(isAllowed(rule, "router/Session.h"));
  EXPECT_FALSE(isAllowed(rule, "router-client/Holder.h"));
}

}  // namespace
