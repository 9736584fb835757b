// SPDX-License-Identifier: Apache-2.0

// Everything that router, job daemon and command log is a row of a table: no other way exists.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "jobd/LogTable.h"
#include "router-client/LogSites.h"
#include "router/LogTable.h"

namespace {

namespace fs = std::filesystem;

fs::path sourceDirectory() {
  const char* directory = std::getenv("WLHID_SOURCE_DIR");
  return directory != nullptr ? fs::path(directory) : fs::path();
}

/// Without comments and blanks, so that a call may span lines.
std::string codeOf(const fs::path& file) {
  std::ifstream in(file);
  std::string code;
  for (std::string line; std::getline(in, line);) {
    line.resize(std::min(line.find("//"), line.size()));
    std::erase_if(line, [](unsigned char c) { return std::isspace(c) != 0; });
    code += line;
  }
  return code;
}

std::vector<fs::path> sourcesOf(const fs::path& folder) {
  std::vector<fs::path> found;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string extension = entry.path().extension();
    if (extension == ".h" || extension == ".cpp") found.push_back(entry.path());
  }
  return found;
}

std::size_t countOf(std::string_view part, std::string_view text) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
  return count;
}

/// Ways to write arbitrary text to standard error or a log.
constexpr std::array<std::string_view, 14> kFreeText{
    "std::cerr", "std::clog", "stderr",  "NSLog",  "syslog(",       "dprintf(",   "perror(",
    "::printf(", "puts(",     "psignal", "warnx(", "error_at_line", "sd_journal", "sd_notify"};

TEST(Logging, TakesNoFreeText) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty()) << "WLHID_SOURCE_DIR is not set; run this test through ctest";
  std::size_t checked = 0;
  for (const char* folder : {"router", "jobd", "tool"}) {
    for (const fs::path& file : sourcesOf(source / folder)) {
      const std::string code = codeOf(file);
      for (const std::string_view way : kFreeText)
        EXPECT_EQ(code.find(way), std::string::npos) << file << ": " << way;
      ++checked;
    }
  }
  EXPECT_GT(checked, 100U) << "hardly anything was found to check";
}

/// Background programs have no terminal: their standard error goes to a log.
TEST(Logging, WritesLinesOfTablesToStandardError) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty());
  std::size_t calls = 0;
  for (const char* folder : {"router", "jobd"}) {
    for (const fs::path& file : sourcesOf(source / folder)) {
      const std::string code = codeOf(file);
      const std::size_t all = countOf("writeLineToStandardError(", code);
      // A function that takes a line of a table, and nothing else, may pass it on.
      const std::size_t passedOn =
          countOf("voidnote(constLogLine&line){platform::writeLineToStandardError(line);}", code);
      EXPECT_EQ(countOf("writeLineToStandardError(platform::LogLine::of<", code) + passedOn, all)
          << file;
      // The one place that writes a line.
      const bool isSink = file.filename() == "RouterLog.cpp";
      EXPECT_EQ(countOf("STDERR_FILENO", code), isSink ? 1U : 0U) << file;
      calls += all;
    }
  }
  EXPECT_EQ(calls, 4U);
}

/// Only the code that reads a job's output writes it to the log as is.
TEST(Logging, OnlyAJobsOutputIsWrittenAsItIs) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty());
  for (const fs::path& file : sourcesOf(source / "jobd")) {
    const bool isJobs = file.filename() == "JobProcess.cpp";
    EXPECT_EQ(countOf("log_.write(", codeOf(file)), isJobs ? 2U : 0U) << file;
    EXPECT_EQ(countOf("log.write(", codeOf(file)), 0U) << file;
  }
}

/// The framework logs through its table; nothing else in these folders calls the logger's method.
TEST(Logging, TheClientsLinesAreItsSites) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty());
  for (const char* folder : {"router", "jobd", "tool", "router-client"}) {
    for (const fs::path& file : sourcesOf(source / folder)) {
      const bool isSites = file.filename() == "ClientLog.h";
      EXPECT_EQ(countOf("logAtLevel_function", codeOf(file)), isSites ? 1U : 0U) << file;
    }
  }
}

// ---- The tables are complete

TEST(Logging, ATableHasAllItsRows) {
  const fs::path source = sourceDirectory();
  ASSERT_FALSE(source.empty());
  const auto rows = [&](const char* table) {
    return countOf("inlineconstexprLogTemplate", codeOf(source / table));
  };
  EXPECT_EQ(rows("router/LogTable.h"), router::row::kTable.size());
  EXPECT_EQ(rows("jobd/LogTable.h"), jobd::row::kTable.size() + jobd::row::kEnds.size());
  EXPECT_EQ(countOf("inlineconstexprLogSite", codeOf(source / "router-client/LogSites.h")),
            wlhid::site::kTable.size());
}

template <class Table>
void expectNoneTwice(const Table& table) {
  for (auto row = table.begin(); row != table.end(); ++row)
    EXPECT_EQ(std::count(table.begin(), table.end(), *row), 1);
}

TEST(Logging, ATableHasNoRowTwice) {
  expectNoneTwice(router::row::kTable);
  expectNoneTwice(jobd::row::kTable);
  expectNoneTwice(wlhid::site::kTable);
}

TEST(Logging, ASiteThatShowsSomethingHasOneArgument) {
  for (const wlhid::LogSite* site : wlhid::site::kTable) {
    if (site->shows == wlhid::LogShows::Nothing) continue;
    EXPECT_EQ(std::count(site->format.begin(), site->format.end(), '%'), 1) << site->format;
  }
}

}  // namespace
