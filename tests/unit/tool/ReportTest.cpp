// SPDX-License-Identifier: Apache-2.0

// The report with modules that behave in every possible way.
#include "tool/report/DiagnosticReport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "platform/kit/KQLogger.h"
#include "platform/kit/RecentLogLines.h"
#include "tests/support/ArchiveReader.h"
#include "tests/support/TemporaryDirectory.h"

namespace tool {
namespace {

namespace fs = std::filesystem;
using platform::KQLogFile;
using platform::KQLogger;
using platform::NSData;
using platform::NSURL;
using platform::str;
using testsupport::writeFile;

using Files = std::vector<std::shared_ptr<KQLogFile>>;

/// One module for all tests, because modules stay with the logger: it offers what a test has set.
class Module final : public platform::KQLogModule, public platform::KQLogModuleFileProvider {
 public:
  static Files& offered() {
    static Files files;
    return files;
  }
  Module() : KQLogModule(str("../test"), str("Test")) {}
  void provideFilesWithCompletionHandler(const FilesHandler& handler) override {
    handler(nullptr, offered());
  }
};

/// One that always fails.
class FailingModule final : public platform::KQLogModule, public platform::KQLogModuleFileProvider {
 public:
  FailingModule() : KQLogModule(str("failing"), str("Failing")) {}
  void provideFilesWithCompletionHandler(const FilesHandler& /*handler*/) override {
    throw std::runtime_error("serial MARKFAIL and /home/MARKPATH/x");
  }
};

std::shared_ptr<KQLogFile> fileOf(const std::string& name, KQLogFile::Source source) {
  return KQLogFile::initWithName_localizedDescription_categoryName_source(
      str(name), str("What " + name + " is"), str("Test"), std::move(source));
}

std::shared_ptr<KQLogFile> dataFile(const std::string& name, const std::string& text) {
  return fileOf(name, [text](const auto&, const auto& handler) {
    handler(
        nullptr, nullptr,
        NSData::dataWithBytes({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}),
        false);
  });
}

std::shared_ptr<KQLogFile> placeFile(const std::string& name, const fs::path& path, bool remove) {
  return fileOf(name, [path, remove](const auto&, const auto& handler) {
    handler(nullptr, NSURL::fileURLWithPath(str(path.native())), nullptr, remove);
  });
}

struct Written {
  std::map<std::string, std::string> files;
  nlohmann::json manifest;
};

class ReportTest : public testing::Test {
 protected:
  ReportTest() {
    KQLogger::sharedLogger().addModule(std::make_shared<Module>());
    KQLogger::sharedLogger().addModule(std::make_shared<FailingModule>());
    platform::SystemRoot::setCurrent(root_);
  }
  ~ReportTest() override {
    Module::offered().clear();
    platform::SystemRoot::resetCurrent();
  }

  [[nodiscard]] Written report(bool withInput) const {
    const fs::path path = directory_.path() / "out.zip";
    NewFile file(path);
    ReportArchive archive(file);
    const ReportResult result = writeReport({root_, withInput, std::nullopt, {}}, archive);
    archive.finish();
    file.keep();
    Written written{testsupport::readArchive(path), nlohmann::json::parse(result.manifest)};
    EXPECT_EQ(written.files["wlhid-report/manifest.json"], result.manifest);
    return written;
  }
  /// With input.
  static std::string module(const Written& written, const std::string& name) {
    return contentOf(written, "_.._test/" + name);
  }
  static std::string contentOf(const Written& written, const std::string& name) {
    const auto at = written.files.find("wlhid-report/modules/" + name);
    return at != written.files.end() ? at->second : "(not there)";
  }
  static nlohmann::json missing(const Written& written, const std::string& part) {
    for (const auto& missing : written.manifest["missing"]) {
      if (missing["part"] == part) return missing;
    }
    return {{"problem", "(nothing missing)"}};
  }
  static std::string problemOf(const Written& written, const std::string& part) {
    return missing(written, part)["problem"];
  }
  /// The number of the tests' module in a report without input.
  static std::string moduleNumber() {
    std::size_t number = 0;
    for (const auto& module : KQLogger::sharedLogger().modules()) {
      if (dynamic_cast<platform::KQLogModuleFileProvider*>(module.get()) == nullptr) continue;
      ++number;
      if (dynamic_cast<Module*>(module.get()) != nullptr) break;
    }
    return "module-" + std::to_string(number);
  }

  const testsupport::TemporaryDirectory directory_;
  const platform::SystemRoot root_ = platform::SystemRoot(directory_.path() / "root");
};

TEST_F(ReportTest, TheManifestNamesEveryFileWithItsSize) {
  Module::offered() = {dataFile("a.log", "words\n")};
  const Written written = report(false);
  const auto& manifest = written.manifest;
  EXPECT_EQ(manifest["format"], 2);
  EXPECT_EQ(manifest["systemRoot"], "<private>");
  EXPECT_EQ(manifest["withInput"], false);
  EXPECT_EQ(manifest["tool"].get<std::string>().substr(0, 6), "wlhid ");
  const std::string kernel = manifest["system"]["kernel"];
  EXPECT_TRUE(kernel.starts_with("Linux ")) << kernel;
  EXPECT_EQ(kernel.find_first_not_of("0123456789.", 6), std::string::npos) << kernel;
  std::size_t named = 1;  // the manifest itself
  for (const auto& file : manifest["files"]) {
    const auto at = written.files.find("wlhid-report/" + file["name"].get<std::string>());
    ASSERT_NE(at, written.files.end()) << file;
    EXPECT_EQ(file["bytes"], at->second.size());
    ++named;
  }
  EXPECT_EQ(named, written.files.size());
  for (const char* name : {"summary.html", "doctor.txt", "presence.json", "jobs.json",
                           "devices.json", "root.json", "modules/KQRecentLogLines/recent.log"})
    EXPECT_TRUE(written.files.contains("wlhid-report/" + std::string(name))) << name;
}

TEST_F(ReportTest, AModuleThatFailsIsNamedAndLosesNoOther) {
  Module::offered() = {
      dataFile("before.log", "before\n"),
      fileOf("throws.log", [](const auto&, const auto&) { throw std::runtime_error("no"); }),
      fileOf("nothing.log",
             [](const auto&, const auto& handler) { handler(nullptr, nullptr, nullptr, false); }),
      nullptr,
      placeFile("gone.log", directory_.path() / "gone", false),
      placeFile("directory.log", directory_.path(), false),
      dataFile("after.log", "after\n"),
  };
  const Written written = report(true);
  EXPECT_EQ(module(written, "before.log"), "before\n");
  EXPECT_EQ(module(written, "after.log"), "after\n");
  EXPECT_EQ(problemOf(written, "module failing"), "failed: serial MARKFAIL and /home/MARKPATH/x");
  EXPECT_EQ(problemOf(written, "module ../test, file throws.log"), "failed: no");
  EXPECT_EQ(problemOf(written, "module ../test, file nothing.log"),
            "provided neither data nor a file");
  EXPECT_EQ(problemOf(written, "module ../test, file "), "has no source");
  EXPECT_TRUE(
      problemOf(written, "module ../test, file gone.log").ends_with("No such file or directory"));
  EXPECT_TRUE(
      problemOf(written, "module ../test, file directory.log").ends_with("not a regular file"));
}

TEST_F(ReportTest, NamesAreHarmlessAndUnlike) {
  Module::offered() = {dataFile("../../etc/passwd", "1"),
                       dataFile("..", "2"),
                       dataFile("", "3"),
                       dataFile("same", "4"),
                       dataFile("same", "5"),
                       dataFile("\x1b[31m\n", "6"),
                       dataFile(std::string(5000, 'x'), "7")};
  const Written written = report(true);
  std::string contents;
  for (const auto& [name, content] : written.files) {
    EXPECT_EQ(("/" + name + "/").find("/../"), std::string::npos) << name;
    EXPECT_LT(name.size(), 200U);
    EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                     "0123456789._-/"),
              std::string::npos)
        << name;
    if (name.find("/modules/_.._test/") != std::string::npos) contents += content;
  }
  std::ranges::sort(contents);
  EXPECT_EQ(contents, "1234567");
  EXPECT_EQ(module(written, "_.._.._etc_passwd"), "1");
  EXPECT_EQ(module(written, "_.."), "2");
  EXPECT_EQ(module(written, "_"), "3");
  EXPECT_EQ(module(written, "same"), "4");
  EXPECT_EQ(module(written, "same-2"), "5");
  EXPECT_EQ(module(written, std::string(100, 'x')), "7");
}

TEST_F(ReportTest, AFileIsThereWhereverItsModuleSaysThatItIsNotWhole) {
  const auto error = platform::NSError::errorWithDomain_code_userInfo(str("Domain"), 7, nullptr);
  const auto half = [error](const std::string& name, const std::string& text) {
    return fileOf(name, [error, text](const auto&, const auto& handler) {
      handler(
          error, nullptr,
          NSData::dataWithBytes({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}),
          false);
    });
  };
  Module::offered() = {half("half", "a half\n"), half("byte", "\n"), half("none", ""),
                       dataFile("empty", "")};
  const Written written = report(true);
  EXPECT_EQ(module(written, "half"), "a half\n");
  EXPECT_EQ(problemOf(written, "module ../test, file half"), "Domain 7");
  EXPECT_EQ(module(written, "byte"), "\n");
  EXPECT_EQ(module(written, "none"), "(not there)");
  EXPECT_EQ(module(written, "empty"), "");
  EXPECT_EQ(problemOf(written, "module ../test, file empty"), "(nothing missing)");
}

TEST_F(ReportTest, APartHasItsModulesDescriptionAndCategory) {
  Module::offered() = {dataFile("a.log", "words\n")};
  const Written written = report(true);
  for (const auto& file : written.manifest["files"]) {
    if (file["name"] != "modules/_.._test/a.log") continue;
    EXPECT_EQ(file["description"], "What a.log is");
    EXPECT_EQ(file["category"], "Test");
    return;
  }
  ADD_FAILURE() << written.manifest;
}

TEST_F(ReportTest, OfOtherModulesNothingButLengthsIsThereWithoutInput) {
  const std::string known = "Nov 21 03:12:46 h com.quillmar.hideventrouter[345]: router ends";
  const fs::path place = directory_.path() / "MARKPLACE";
  writeFile(place, "serial MARK\n");
  Module::offered() = {dataFile("MARKNAME", "serial MARK\n" + known), nullptr,
                       placeFile("MARKNAME", place, false)};
  const Written written = report(false);
  const std::string folder = moduleNumber() + "/";
  EXPECT_EQ(contentOf(written, folder + "file-1"), "<a line of 11 bytes>\n<a line of 63 bytes>\n");
  EXPECT_EQ(contentOf(written, folder + "file-3"), "<a line of 11 bytes>\n");
  for (const auto& [name, content] : written.files)
    EXPECT_EQ((name + content).find("MARK"), std::string::npos) << name << content;
  EXPECT_EQ(
      missing(written, "module " + moduleNumber() + ", file file-2"),
      (nlohmann::json{{"part", "module " + moduleNumber() + ", file file-2"}, {"code", nullptr}}));
}

TEST_F(ReportTest, WithoutInputAPartThatIsMissingHasTheCodeOfItsError) {
  const auto failing = [](std::int64_t code) {
    return fileOf("x", [code](const auto&, const auto& handler) {
      handler(platform::NSError::errorWithDomain_code_userInfo(str("MARK"), code, nullptr), nullptr,
              nullptr, false);
    });
  };
  Module::offered() = {failing(260), failing(4711220033)};
  const Written written = report(false);
  const std::string part = "module " + moduleNumber() + ", file file-";
  EXPECT_EQ(missing(written, part + "1")["code"], 260);
  EXPECT_EQ(missing(written, part + "2")["code"], "<private>");
}

TEST_F(ReportTest, TheRoutersLogIsKnownAcrossItsPieces) {
  const std::string head = "Nov 21 03:12:46 h com.quillmar.hideventrouter[345]: ";
  const std::string filler((std::size_t{1} << 16) - 100, 'x');
  writeFile(root_.systemLog(), head + filler + "\n" + head + "nobody is connected\n" + head +
                                   "serial code 4711220033\n");
  EXPECT_EQ(contentOf(report(false), "WLHIDEventRouter/syslog-com.quillmar.hideventrouter.log"),
            "<a line of " + std::to_string(head.size() + filler.size()) +
                " bytes>\nNov 21 03:12:46 <private> com.quillmar.hideventrouter[345]: nobody is "
                "connected\n<a line of 74 bytes>\n");
}

TEST_F(ReportTest, ATrialIsAStepOfItsOwn) {
  const ReportRequest without{root_, false, std::nullopt, {}};
  const ReportRequest with{root_, false, 5, {}};
  EXPECT_EQ(reportSteps(with), reportSteps(without) + 1);
}

TEST_F(ReportTest, FilesAreStreamedAndRemovedWhereTheModuleSaysSo) {
  const fs::path kept = directory_.path() / "kept.log";
  const fs::path removed = directory_.path() / "removed.log";
  std::string text;
  while (text.size() < (std::size_t{1} << 19)) text += "one line of words\n";
  writeFile(kept, text);
  writeFile(removed, "words\n");
  Module::offered() = {placeFile("kept.log", kept, false), placeFile("removed.log", removed, true)};
  const Written written = report(true);
  EXPECT_EQ(module(written, "kept.log"), text);
  EXPECT_EQ(module(written, "removed.log"), "words\n");
  EXPECT_TRUE(fs::exists(kept));
  EXPECT_FALSE(fs::exists(removed));
}

TEST_F(ReportTest, BinaryContentIsThereOnlyWhenInputIsWanted) {
  const std::string binary = std::string("text\n") + '\0' + "MARK";
  Module::offered() = {dataFile("binary", binary)};
  EXPECT_EQ(contentOf(report(false), moduleNumber() + "/file-1"),
            "<a line of 4 bytes>\n<a line of 5 bytes>\n");
  EXPECT_EQ(module(report(true), "binary"), binary);
}

TEST_F(ReportTest, InputOfTheFrameworksOwnLogIsThereOnlyWhenItIsKept) {
  auto& lines = KQLogger::sharedLogger().recentLines();
  KQLogger::sharedLogger().setSink(std::make_shared<platform::KQLogSink>());
  const auto log = [] {
    const std::array<std::uint8_t, 4> bytes{0x4d, 0x41, 0x52, 0x4b};
    KQLogger::sharedLogger().logAtLevel_function_sourcePath_sourceLine_tags_message(
        0, "-[WLHIDEventRouterClient receivedData:forReportID:]", "C", 314, nullptr,
        "Received for reportID %u: %@", 7U, NSData::dataWithBytes(bytes));
  };
  const std::string name = "wlhid-report/modules/KQRecentLogLines/recent.log";
  log();
  EXPECT_EQ(report(true).files[name].find("4d41524b"), std::string::npos);
  lines.setKeepsInput(true);
  log();
  lines.setKeepsInput(false);
  EXPECT_NE(report(true).files[name].find("4d41524b"), std::string::npos);
  const std::string shown = report(false).files[name];
  EXPECT_EQ(shown.find("4d41524b"), std::string::npos) << shown;
  EXPECT_EQ(shown.find("reportID 7"), std::string::npos) << shown;
  EXPECT_NE(
      shown.find("-[WLHIDEventRouterClient receivedData:forReportID:]:314 Received for reportID "
                 "<private>: <private>\n"),
      std::string::npos)
      << shown;
  KQLogger::sharedLogger().setSink(nullptr);
}

TEST_F(ReportTest, SaysWhatItIsDoing) {
  std::vector<std::string> steps;
  NewFile file(directory_.path() / "out.zip");
  ReportArchive archive(file);
  const ReportRequest request{root_, false, std::nullopt,
                              [&](std::string_view what) { steps.emplace_back(what); }};
  static_cast<void>(writeReport(request, archive));
  EXPECT_EQ(steps.size(), static_cast<std::size_t>(reportSteps(request)));
  ASSERT_GE(steps.size(), 4U);
  EXPECT_EQ(steps.front(), "Checking router, jobs and devices");
  EXPECT_EQ(steps.back(), "Writing the manifest");
}

TEST_F(ReportTest, AnArchiveThatIsGivenUpLeavesNothing) {
  {
    NewFile file(directory_.path() / "out.zip");
    ReportArchive archive(file);
    archive.begin("a");
    archive.write(std::string(1 << 20, 'x'));
  }
  EXPECT_TRUE(fs::is_empty(directory_.path()));
}

}  // namespace
}  // namespace tool
