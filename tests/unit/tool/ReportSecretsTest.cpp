// SPDX-License-Identifier: Apache-2.0

// A report without input is literal text and shown values. Here every argument of every line of
// every table is a secret, in every form in which it could slip through, and none may appear in a
// report.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "jobd/LogTable.h"
#include "jobd/LogText.h"
#include "platform/foundation/Base64.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/NSError.h"
#include "platform/kit/KQLogger.h"
#include "platform/kit/RecentLogLines.h"
#include "router-client/LogSites.h"
#include "router/LogTable.h"
#include "tests/support/ArchiveReader.h"
#include "tests/support/TemporaryDirectory.h"
#include "tool/findings/InventoryJson.h"
#include "tool/report/DiagnosticReport.h"
#include "tool/report/ShownFindings.h"
#include "tool/report/Summary.h"

namespace tool {
namespace {

using platform::KQLogger;
using platform::LogArgument;
using platform::LogPlace;
using platform::LogTemplate;
using platform::str;

/// Longer than any shown number, for places where numbers are shown.
constexpr std::uint64_t kLongNumber = 4711220033;
/// Could be shown as a number, for places where none is.
constexpr std::uint64_t kShortNumber = 7654321;
constexpr std::uint64_t kDevice = 0x4711aa7654321bb;
constexpr std::string_view kWord = "QZSecretWord";
/// Values in arguments that imitate another line.
constexpr std::int64_t kForgedCode = -536868765;
constexpr std::string_view kForgedVersion = "7.6.543";

std::vector<const LogTemplate*> allRows() {
  std::vector<const LogTemplate*> rows(router::row::kTable.begin(), router::row::kTable.end());
  rows.insert(rows.end(), jobd::row::kTable.begin(), jobd::row::kTable.end());
  return rows;
}

std::string hex(std::string_view text, std::string_view between) {
  std::string result;
  for (const char c : text)
    result += (result.empty() ? "" : std::string(between)) +
              platform::stringWithFormat("%02x", static_cast<unsigned char>(c));
  return result;
}

std::string wide(std::string_view text) {
  std::string result;
  for (const char c : text) result.append({c, '\0'});
  return result;
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text)
    result += platform::stringWithFormat("%%%02X", static_cast<unsigned char>(c));
  return result;
}

std::string base64Of(std::string_view text) {
  const std::vector<std::uint8_t> bytes(text.begin(), text.end());
  return platform::base64(bytes);
}

/// The secret in every form it could have been written in.
std::vector<std::string> formsOfSecret() {
  std::string lower(kWord);
  std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return std::tolower(c); });
  const std::string number = std::to_string(kLongNumber);
  return {std::string(kWord),
          lower,
          hex(kWord, ""),
          hex(kWord, " "),
          hex(kWord, ":"),
          base64Of(kWord),
          escaped(kWord),
          std::string(kWord.rbegin(), kWord.rend()),
          number,
          std::to_string(kShortNumber),
          hex(number, ""),
          platform::stringWithFormat("%llx", kLongNumber),
          "device 0x" + platform::stringWithFormat("%llx", kDevice)};
}

/// What must not be found.
std::vector<std::string> secrets() {
  std::vector<std::string> all = formsOfSecret();
  all.back() = platform::stringWithFormat("%llx", kDevice);
  all.push_back(std::to_string(kDevice));
  all.push_back(std::to_string(kForgedCode));
  all.emplace_back(kForgedVersion);
  all.emplace_back("QZHost");
  return all;
}

std::vector<std::string> found(std::string_view text) {
  std::vector<std::string> result;
  for (const std::string& secret : secrets()) {
    if (text.find(secret) != std::string_view::npos) result.push_back(secret);
  }
  return result;
}

/// A line of the row in which every argument is a secret.
std::string secretLine(const LogTemplate& row, std::string_view text) {
  std::vector<LogArgument> arguments;
  for (std::size_t i = 0; i < row.places(); ++i) {
    switch (row.place(i)) {
      case LogPlace::Text:
      case LogPlace::Label:
        arguments.emplace_back(text);
        break;
      case LogPlace::Version:
        arguments.emplace_back("4.711220033");
        break;
      case LogPlace::Private:
        arguments.emplace_back(kShortNumber);
        break;
      case LogPlace::Device:
        arguments.emplace_back(kDevice);
        break;
      case LogPlace::Count:
      case LogPlace::Code:
        arguments.emplace_back(kLongNumber);
        break;
    }
  }
  return platform::renderLogTemplate(row, arguments);
}

/// A line of the row with values that would be shown.
std::string likelyLine(const LogTemplate& row, std::string_view text) {
  std::vector<LogArgument> arguments;
  for (std::size_t i = 0; i < row.places(); ++i) {
    switch (row.place(i)) {
      case LogPlace::Text:
        arguments.emplace_back(text);
        break;
      case LogPlace::Label:
        arguments.emplace_back("com.quillmar.hideventrouter");
        break;
      case LogPlace::Version:
        arguments.emplace_back(kForgedVersion);
        break;
      case LogPlace::Code:
        arguments.emplace_back(kForgedCode);
        break;
      case LogPlace::Private:
      case LogPlace::Device:
      case LogPlace::Count:
        arguments.emplace_back(kShortNumber);
        break;
    }
  }
  return platform::renderLogTemplate(row, arguments);
}

/// A line with foreign text; its other values are valid.
std::string lineSaying(const LogTemplate& row, std::string_view text) {
  std::vector<LogArgument> arguments;
  for (std::size_t i = 0; i < row.places(); ++i) {
    if (row.place(i) == LogPlace::Version)
      arguments.emplace_back("1.0");
    else if (platform::isNumber(row.place(i)))
      arguments.emplace_back(std::uint64_t{1});
    else
      arguments.emplace_back(text);
  }
  return platform::renderLogTemplate(row, arguments);
}

/// The log that the job daemon writes of a process's output.
class Log {
 public:
  explicit Log(std::string name) : name_(std::move(name)) {}
  void write(std::string_view bytes) {
    lines_.feed(bytes, [this](std::string_view line) {
      text_ +=
          jobd::logEntry({}, "QZHost", name_, 345,
                         lines_.continuesLine() ? std::string(jobd::kContinuationMark).append(line)
                                                : std::string(line));
    });
  }
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  const std::string name_;
  jobd::LineSplitter lines_;
  std::string text_;
};

std::string shown(std::string_view log) {
  DeviceOrder devices;
  ShownLines lines(ShownLines::Source::SystemLog, devices);
  return lines.feed(log) + lines.finish();
}

// ---- Every place of every row

TEST(ReportSecrets, NoArgumentOfAnyRowIsShown) {
  std::size_t checked = 0;
  for (const LogTemplate* row : allRows()) {
    for (const std::string& form : formsOfSecret()) {
      for (const std::string& text : {form, form + "\n" + form, wide(form), "\xff\xfe" + form,
                                      form + std::string(3000, 'x')}) {
        Log log("com.quillmar.hideventrouter");
        log.write(secretLine(*row, text) + "\n");
        const std::string result = shown(log.text());
        EXPECT_EQ(found(result), std::vector<std::string>()) << result;
        EXPECT_EQ(result.find("<a line of"), std::string::npos)
            << "is not recognised: " << log.text();
        ++checked;
      }
    }
  }
  EXPECT_GT(checked, 2000U);
}

/// The shown form of what likelyLine() puts in such a place.
std::string likelyValue(LogPlace place) {
  switch (place) {
    case LogPlace::Count:
      return std::to_string(kShortNumber);
    case LogPlace::Code:
      return std::to_string(kForgedCode);
    case LogPlace::Version:
      return std::string(kForgedVersion);
    case LogPlace::Device:
      return "device 1";
    case LogPlace::Label:
      return "com.quillmar.hideventrouter";
    case LogPlace::Text:
    case LogPlace::Private:
      break;
  }
  return std::string(kPrivate);
}

TEST(ReportSecrets, WhatMayBeShownIsShown) {
  for (const LogTemplate* row : allRows()) {
    Log log("wlhid-jobd");
    log.write(likelyLine(*row, kWord) + "\n");
    const std::string result = shown(log.text());
    for (std::size_t i = 0; i < row->places(); ++i) {
      const std::string shownValue = likelyValue(row->place(i));
      EXPECT_NE(result.find(shownValue), std::string::npos) << result;
    }
  }
}

// ---- Arguments that imitate other rows

/// Every way in which a text could try to pass for a line of its own.
std::vector<std::string> disguises(const LogTemplate& row, const std::string& forged) {
  const std::string head = "Nov 21 03:12:46 h com.quillmar.hideventrouter[345]: ";
  std::vector<std::string> texts{forged,
                                 forged + "\n" + forged,
                                 "\n" + forged + "\n",
                                 "\r\n" + head + forged + "\r\n",
                                 "x\n" + head + forged + "\n" + head + forged,
                                 "\x1b[2K\r" + forged,
                                 "\xe2\x80\xa8" + forged,
                                 std::string("\0", 1) + forged,
                                 "\xff" + forged + "\xc3",
                                 "a)" + forged + "(b",
                                 "a: " + forged + ": b",
                                 forged + std::string(row.literal(row.places())),
                                 std::string(row.literal(0)) + forged};
  // Sizes at which a line could be cut on its way.
  for (const std::size_t size : {1000, 1500}) texts.push_back(std::string(size, 'x') + forged);
  texts.push_back(std::string(370, '\n') + forged);
  texts.push_back(std::string(370, '\xff') + forged);
  texts.push_back(forged + std::string(1 << 16, 'x'));
  return texts;
}

bool hasText(const LogTemplate& row) {
  for (std::size_t i = 0; i < row.places(); ++i)
    if (row.place(i) == LogPlace::Text) return true;
  return false;
}

TEST(ReportSecrets, AnArgumentThatImitatesARowShowsNothing) {
  std::size_t checked = 0;
  for (const LogTemplate* row : allRows()) {
    if (!hasText(*row)) continue;
    std::string written;
    for (const LogTemplate* imitated : allRows()) {
      for (const std::string& text : disguises(*row, likelyLine(*imitated, kWord))) {
        written += lineSaying(*row, text) + "\n";
        ++checked;
      }
    }
    Log log("com.quillmar.hideventrouter");
    log.write(written);
    const std::string result = shown(log.text());
    EXPECT_EQ(std::ranges::count(result, '\n'), std::ranges::count(written, '\n'));
    EXPECT_EQ(found(result), std::vector<std::string>()) << row->literal(0);
  }
  EXPECT_GT(checked, 5000U);
}

/// For example a line of a library, which is in no table and of any length.
TEST(ReportSecrets, ALineOfNoTableThatImitatesRowsShowsNothing) {
  for (const LogTemplate* imitated : allRows()) {
    const std::string forged = likelyLine(*imitated, kWord);
    Log log("com.quillmar.hideventrouter");
    for (const std::size_t size : {0, 1, 2000, 2031, 4079, 1 << 14})
      log.write("a library says: " + std::string(size, 'x') + forged + "\n");
    for (std::size_t size = 2044; size <= 2050; ++size)
      log.write(std::string(size, 'x') + forged + "\n");
    EXPECT_EQ(found(shown(log.text())), std::vector<std::string>()) << forged;
  }
}

TEST(ReportSecrets, WhatOtherProcessesSayIsNotShown) {
  std::string text;
  for (const LogTemplate* row : allRows()) {
    for (const char* writer : {"kernel", "launcher", "com.quillmar.hideventrouter.other"}) {
      Log log(writer);
      log.write(likelyLine(*row, kWord) + "\n");
      text += log.text() + likelyLine(*row, kWord) + "\n\t" + likelyLine(*row, kWord) + "\n";
    }
  }
  EXPECT_EQ(found(shown(text)), std::vector<std::string>());
}

// ---- The whole report

class WholeReport : public testing::Test {
 protected:
  WholeReport() {
    platform::SystemRoot::setCurrent(root_);
    KQLogger::sharedLogger().setSink(std::make_shared<platform::KQLogSink>());
  }
  ~WholeReport() override {
    KQLogger::sharedLogger().setSink(nullptr);
    platform::SystemRoot::resetCurrent();
  }
  [[nodiscard]] std::map<std::string, std::string> report(bool withInput) const {
    const auto path = directory_.path() / "out.zip";
    NewFile file(path);
    ReportArchive archive(file);
    static_cast<void>(writeReport({root_, withInput, std::nullopt, {}}, archive));
    archive.finish();
    file.keep();
    return testsupport::readArchive(path);
  }
  template <class... Arguments>
  static void log(const wlhid::LogSite& site, const Arguments&... arguments) {
    KQLogger::sharedLogger().logAtLevel_function_sourcePath_sourceLine_tags_message(
        site.level, site.function, wlhid::kLogSourcePath, site.line,
        platform::NSArray::arrayWithObjects({str(kWord)}), site.format, arguments...);
  }
  static void logWithSecrets(const wlhid::LogSite& site, std::string_view secret) {
    const auto error = platform::NSError::errorWithDomain_code_userInfo(
        str(secret), static_cast<std::int64_t>(kLongNumber), nullptr);
    const auto input = platform::NSData::dataWithBytes(
        {reinterpret_cast<const std::uint8_t*>(secret.data()), secret.size()});
    switch (std::ranges::count(site.format, '%')) {
      case 0:
        return log(site);
      case 1:
        if (site.format.find("%@") != std::string_view::npos) return log(site, error);
        return log(site, kLongNumber);
      case 2:
        return log(site, kShortNumber, input);
      default:
        return log(site, kShortNumber, kShortNumber, kLongNumber, kShortNumber, kShortNumber,
                   input);
    }
  }

  const testsupport::TemporaryDirectory directory_;
  const platform::SystemRoot root_ = platform::SystemRoot(directory_.path() / kWord);
};

TEST_F(WholeReport, HoldsNoSecretOfAnyLineOfAnyTable) {
  std::string text;
  for (const LogTemplate* row : allRows()) {
    for (const std::string& form : formsOfSecret()) {
      Log log("com.quillmar.hideventrouter");
      log.write(secretLine(*row, form) + "\n");
      text += log.text();
    }
  }
  testsupport::writeFile(root_.systemLog(), text);
  for (const wlhid::LogSite* site : wlhid::site::kTable)
    for (const std::string& form : formsOfSecret()) logWithSecrets(*site, form);
  log({0, 7, "-[Application go]", "typed: %@"}, str(kWord));

  const auto files = report(false);
  for (const auto& [name, content] : files) {
    EXPECT_EQ(found(name), std::vector<std::string>());
    EXPECT_EQ(found(content), std::vector<std::string>()) << name;
  }
  const std::string& excerpt =
      files.at("wlhid-report/modules/WLHIDEventRouter/syslog-com.quillmar.hideventrouter.log");
  EXPECT_NE(excerpt.find("]: router <private> started: root <private>, <private> devices\n"),
            std::string::npos);
  const std::string& recent = files.at("wlhid-report/modules/KQRecentLogLines/recent.log");
  EXPECT_NE(recent.find(":314 Received for reportID <private>: <private>\n"), std::string::npos);
  EXPECT_NE(recent.find("<a line of "), std::string::npos);

  std::string whole;
  for (const auto& [name, content] : report(true)) whole += content;
  for (const std::string& form : formsOfSecret())
    EXPECT_NE(whole.find(form), std::string::npos) << "was never planted: " << form;
}

// ---- What exists on the root

Inventory markedInventory() {
  const std::string word(kWord);
  Inventory inventory{platform::SystemRoot("/" + word), {}, {}, {}, {}, {}, {}, {}, {}};
  inventory.rootState = {"/" + word, true, 12, word};
  const RouterCopy copy{"/" + word, "4711220033", CopyState::Complete, word, nullptr};
  inventory.presence = {false, {copy, copy, word, {word}}, {}};
  inventory.presence.steps = presenceSteps(inventory.presence.versions);
  router::SessionStatus session{
      static_cast<pid_t>(kLongNumber), 7654321, kDevice, word, true, kLongNumber, kLongNumber};
  inventory.router = router::RouterStatus{-1, "4711220033", kLongNumber, {session}, true};
  const auto number = static_cast<std::int64_t>(kLongNumber);
  platform::ControlReply reply;
  reply.daemonProcessIdentifier = number;
  reply.jobs.push_back({word, {word}, number, number, number, "ended by signal 4711220033"});
  reply.jobs.push_back({word, {word}, 0, 1, 0, "could not be started: " + word});
  inventory.jobDaemon = {true, reply, word, false, 5};
  inventory.endpoints = {{word, "/" + word, true, 7654321, 0, false, word}};
  inventory.devices = {{{kDevice, word, 3, 0x118cf5f8, 4711220, "replay " + word}}, {word}};
  inventory.log = {"/" + word, true, true, 7654321, kLongNumber, word};
  inventory.disk = {kLongNumber << 30, kLongNumber, word};
  return inventory;
}

TrialResult markedTrial() {
  return {kDevice, {}, {std::string(kWord)}, {4711220033}, 3, "input came"};
}

TEST(ShownFindings, HoldNoSecret) {
  const Inventory inventory = markedInventory();
  DeviceOrder devices;
  Diagnosis diagnosis = diagnose(inventory);
  for (const std::string& text :
       {shownDiagnosis(diagnosis), dumped(shownPresence(inventory.presence)),
        dumped(shownJobs(inventory, devices)), dumped(shownDevices(inventory.devices, devices)),
        dumped(shownRoot(inventory)), dumped(shownTrial(markedTrial(), devices))})
    EXPECT_EQ(found(text), std::vector<std::string>()) << text;
}

/// What the router, systemd, polkit and logind say on the system's own root.
SystemFindings markedSystem() {
  const std::string word(kWord);
  const SocketUnit socket{
      word, UnitState::Masked, {word, "/" + word, false, 7654321, 0, false, word}};
  SystemFindings system{
      {{"/" + word, word, true}, {"/" + word, word, false}}, {socket}, socket, {}, {}};
  system.router = {true, std::nullopt, std::nullopt, word};
  const router::DeviceDescription device{kDevice, word, 3, 1, 2, word};
  system.router.devices = {{{device,
                             router::DeviceClass::Sensitive,
                             word,
                             {},
                             {},
                             router::DevicePermission::Unknown,
                             word}}};
  system.authorities.polkitProblem = word;
  system.authorities.sessionProblem = word;
  return system;
}

std::string shownPage(const Inventory& inventory, std::optional<std::string> lastError) {
  DeviceOrder devices;
  const Diagnosis diagnosis = diagnose(inventory);
  return summaryPage(
      summaryOf({inventory, diagnosis, originOf(false), markedTrial(), std::move(lastError)}, false,
                devices));
}

TEST(ShownFindings, HoldNoSecretOnTheirFirstPage) {
  Inventory inventory = markedInventory();
  inventory.log.problem.clear();
  for (const LogTemplate* row : allRows()) {
    for (const std::string& form : formsOfSecret()) {
      const std::string line =
          jobd::logEntry({}, "QZHost", "com.quillmar.hideventrouter", 345, secretLine(*row, form));
      const std::string page = shownPage(inventory, line.substr(0, line.size() - 1));
      EXPECT_EQ(found(page), std::vector<std::string>()) << page;
      EXPECT_EQ(page.find("a line of"), std::string::npos) << page;
    }
  }
  inventory.system = markedSystem();
  const std::string page = shownPage(inventory, {});
  EXPECT_EQ(found(page), std::vector<std::string>()) << page;
  EXPECT_NE(page.find("an administrator has forbidden the router"), std::string::npos);
  EXPECT_NE(page.find("<th scope=\"row\">device 1</th>"), std::string::npos);
}

TEST(ShownFindings, SayWhatHelpsAllTheSame) {
  Inventory inventory = markedInventory();
  inventory.jobDaemon.problem.clear();
  DeviceOrder devices;
  EXPECT_EQ(shownDevices(inventory.devices, devices),
            (nlohmann::ordered_json{{"devices",
                                     {{{"device", "device 1"},
                                       {"bus", 3},
                                       {"vendor", "<private>"},
                                       {"product", "<private>"},
                                       {"isRecording", true}}}},
                                    {"configurationsWithProblems", 1}}));
  const auto jobs = shownJobs(inventory, devices);
  EXPECT_EQ(jobs["router"]["sessions"][0]["device"], "device 1");
  EXPECT_EQ(jobs["jobDaemon"]["jobs"][0]["lastEnd"], "ended by signal <private>");
  EXPECT_EQ(jobs["jobDaemon"]["jobs"][1]["lastEnd"], "could not be started: <private>");
  EXPECT_EQ(jobs["endpoints"][0]["owner"], "another user");
  EXPECT_NE(shownDiagnosis(diagnose(inventory))
                .find("\nfailed: system root: it cannot be used -> "
                      "use this user's own root\n"),
            std::string::npos);
  EXPECT_NE(shownDiagnosis(diagnose(inventory))
                .find("\nfailed: job <private>: its last run ended "
                      "badly -> see why\n"),
            std::string::npos);
}

}  // namespace
}  // namespace tool
