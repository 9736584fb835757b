// SPDX-License-Identifier: Apache-2.0

#include "WLHIDAccess/WLHIDEventRouterLogFileProvider.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "platform/kit/KQLogger.h"
#include "platform/scripted/ScriptedPlatform.h"
#include "platform/services/SystemRoot.h"
#include "tests/support/ScopedVariable.h"
#include "tests/support/TemporaryDirectory.h"

using namespace platform;

namespace {

const std::string kEntry = "Nov 21 03:12:45 host com.quillmar.hideventrouter[345]: text\n";

/// The root of every test here; it does not exist.
class Root {
 public:
  Root() { SystemRoot::setCurrent(SystemRoot("/a-root")); }
  ~Root() { SystemRoot::resetCurrent(); }
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;
};

std::shared_ptr<KQLogFile> providedFile(WLHIDEventRouterLogFileProvider& module) {
  std::shared_ptr<KQLogFile> file;
  module.provideFilesWithCompletionHandler([&](auto, auto files) { file = files.at(0); });
  return file;
}

struct Answer {
  std::shared_ptr<NSError> error;
  std::shared_ptr<NSURL> url;
  std::shared_ptr<NSData> data;
  bool flag = true;
};

/// The result of the file's source, which must be passed once, before the source returns.
Answer ask(const std::shared_ptr<KQLogFile>& file) {
  std::vector<Answer> answers;
  file->source()(file, [&](auto error, auto url, auto data, bool flag) {
    answers.push_back({error, url, data, flag});
  });
  EXPECT_EQ(answers.size(), 1U);
  return answers.at(0);
}

std::string text(const std::shared_ptr<NSData>& data) {
  return {reinterpret_cast<const char*>(data->bytes()), data->length()};
}

TEST(LogFileProvider, IsRegisteredOnceAndFurtherLoadsChangeNothing) {
  const auto modules = [] {
    auto all = KQLogger::sharedLogger().modules();
    std::erase_if(all, [](const auto& module) {
      return !module->identifier()->isEqual(KQLogModuleIdentifierWLHIDEventRouterLogFileProvider);
    });
    return all;
  };
  const auto before = modules();
  ASSERT_EQ(before.size(), 1U);
  EXPECT_EQ(before[0]->className(), "WLHIDEventRouterLogFileProvider");
  EXPECT_NE(dynamic_cast<KQLogModuleFileProvider*>(before[0].get()), nullptr);
  WLHIDEventRouterLogFileProvider::load();
  EXPECT_EQ(modules(), before);
}

TEST(LogFileProvider, HasTheModulesIdentifierAndName) {
  const auto module = WLHIDEventRouterLogFileProvider::init();
  EXPECT_EQ(module->identifier()->UTF8String(), "WLHIDEventRouter");
  EXPECT_EQ(module->identifier(), KQLogModuleIdentifierWLHIDEventRouterLogFileProvider);
  EXPECT_EQ(module->name()->UTF8String(), "WLHIDEventRouter logfile provider");
  EXPECT_TRUE(module->isKindOfClass(KQLogModule::classObject()));
}

TEST(LogFileProvider, ProvidesOneFileWithoutError) {
  const auto module = WLHIDEventRouterLogFileProvider::init();
  std::size_t calls = 0;
  module->provideFilesWithCompletionHandler([&](auto error, auto files) {
    ++calls;
    EXPECT_EQ(error, nullptr);
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0]->name()->UTF8String(), "syslog-com.quillmar.hideventrouter.log");
    EXPECT_EQ(files[0]->localizedDescription()->UTF8String(),
              "Excerpts from system.log covering com.quillmar.hideventrouter");
    EXPECT_EQ(files[0]->categoryName()->UTF8String(), "HID Event Router");
  });
  EXPECT_EQ(calls, 1U);
}

TEST(LogFileProvider, ReadsTheLogWhenTheSourceRunsAndLogsNothing) {
  const Root root;
  ScriptedPlatform platform;
  platform.setFile("/a-root/var/log/system.log", {kEntry.begin(), kEntry.end()});
  auto& trace = platform.trace();

  const auto module = WLHIDEventRouterLogFileProvider::init();
  const auto caller = std::this_thread::get_id();
  std::shared_ptr<KQLogFile> file;
  trace.record("asks for the files");
  module->provideFilesWithCompletionHandler([&](auto, auto files) {
    EXPECT_EQ(std::this_thread::get_id(), caller);
    trace.record("is given " + std::to_string(files.size()));
    file = files.at(0);
  });
  trace.record("runs the source");
  file->source()(file, [&](auto error, auto url, auto data, bool flag) {
    EXPECT_EQ(std::this_thread::get_id(), caller);
    trace.record("is given error " + descriptionOf(error) + ", URL " + descriptionOf(url) + ", " +
                 std::to_string(data->length()) + " bytes, " + (flag ? "YES" : "NO"));
  });
  trace.record("is done");

  EXPECT_EQ(trace.take(), (std::vector<std::string>{
                              "asks for the files", "is given 1", "runs the source",
                              "readFile:/a-root/var/log/system.log -> bytes",
                              "is given error (null), URL (null), 60 bytes, NO", "is done"}));
}

TEST(LogFileProvider, ReadsTheFileAgainForEachRequest) {
  const testsupport::TemporaryDirectory directory;
  SystemRoot::setCurrent(SystemRoot(directory.path()));
  const auto file = providedFile(*WLHIDEventRouterLogFileProvider::init());
  const auto missing = ask(file);
  testsupport::writeFile(directory.path() / "var/log/system.log", kEntry);
  const auto one = ask(file);
  testsupport::writeFile(directory.path() / "var/log/system.log", kEntry + kEntry);
  const auto two = ask(file);
  SystemRoot::resetCurrent();

  ASSERT_NE(missing.error, nullptr);
  EXPECT_EQ(missing.error->code(), 260);
  EXPECT_EQ(missing.error->domain()->UTF8String(), "NSCocoaErrorDomain");
  EXPECT_EQ(missing.url, nullptr);
  ASSERT_NE(missing.data, nullptr);
  EXPECT_EQ(missing.data->length(), 0U);
  EXPECT_FALSE(missing.flag);

  EXPECT_EQ(one.error, nullptr);
  EXPECT_EQ(text(one.data), kEntry);
  EXPECT_EQ(one.url, nullptr);
  EXPECT_FALSE(one.flag);
  EXPECT_EQ(text(two.data), kEntry + kEntry);
}

TEST(LogFileProvider, WithoutASystemRootTheAnswerSaysWhy) {
  const testsupport::ScopedVariable root("WLHID_ROOT", nullptr);
  const testsupport::ScopedVariable state("XDG_STATE_HOME", "relative");
  const testsupport::ScopedVariable home("HOME", nullptr);
  const auto answer = ask(providedFile(*WLHIDEventRouterLogFileProvider::init()));
  ASSERT_NE(answer.error, nullptr);
  EXPECT_EQ(answer.error->domain()->UTF8String(), "NSCocoaErrorDomain");
  EXPECT_EQ(answer.error->code(), 260);
  EXPECT_NE(descriptionOf(answer.error).find("no system root"), std::string::npos);
  ASSERT_NE(answer.data, nullptr);
  EXPECT_EQ(answer.data->length(), 0U);
}

TEST(LogFileProvider, TheSourceNeedsNeitherTheModuleNorTheFile) {
  const Root root;
  ScriptedPlatform platform;
  platform.setFile("/a-root/var/log/system.log", {kEntry.begin(), kEntry.end()});
  KQLogFile::Source source;
  {
    const auto module = WLHIDEventRouterLogFileProvider::init();
    source = providedFile(*module)->source();
  }
  std::string excerpt;
  source(nullptr, [&](auto, auto, auto data, bool) { excerpt = text(data); });
  EXPECT_EQ(excerpt, kEntry);
}

}  // namespace
