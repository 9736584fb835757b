// SPDX-License-Identifier: Apache-2.0

#include "tool/report/LogModules.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <thread>

#include "platform/kit/KQLogger.h"

namespace tool {
namespace {

using platform::KQLogFile;
using platform::KQLogger;
using platform::NSData;
using platform::NSError;
using platform::NSURL;
using platform::str;

constexpr std::chrono::milliseconds kShortTimeout{20};

/// Does what the test says. Modules stay with the logger, so each has its own identifier and offers
/// nothing after its test.
class Module final : public platform::KQLogModule, public platform::KQLogModuleFileProvider {
 public:
  using Body = std::function<void(const FilesHandler&)>;
  Module(const std::string& identifier, Body body)
      : KQLogModule(str(identifier), str("Module " + identifier)), body_(std::move(body)) {}
  void provideFilesWithCompletionHandler(const FilesHandler& handler) override { body_(handler); }
  void retire() {
    body_ = [](const FilesHandler& handler) { handler(nullptr, {}); };
  }

 private:
  Body body_;
};

std::shared_ptr<KQLogFile> file(KQLogFile::Source source) {
  return KQLogFile::initWithName_localizedDescription_categoryName_source(
      str("a.log"), str("A log"), str("Logs"), std::move(source));
}

std::shared_ptr<NSError> error() {
  return NSError::errorWithDomain_code_userInfo(str("D"), 7, nullptr);
}

ModuleFiles answerOf(const std::string& identifier, Module::Body body) {
  const auto module = std::make_shared<Module>(identifier, std::move(body));
  KQLogger::sharedLogger().addModule(module);
  ModuleFiles found{"not asked", {}, {}, {}};
  for (ModuleFiles& answer : askLogModules(kShortTimeout)) {
    if (answer.identifier == identifier) found = answer;
  }
  module->retire();
  return found;
}

ModuleContent contentOf(KQLogFile::Source source) {
  return readModuleFile(file(std::move(source)), kShortTimeout);
}

TEST(LogModules, GiveTheirFiles) {
  const auto offered = file(nullptr);
  const ModuleFiles answer =
      answerOf("gives", [offered](const auto& handler) { handler(nullptr, {offered}); });
  EXPECT_EQ(answer.name, "Module gives");
  EXPECT_EQ(answer.files, std::vector{offered});
  EXPECT_EQ(answer.problem, "");
}

TEST(LogModules, ThatFailAreToldOf) {
  EXPECT_EQ(answerOf("fails", [](const auto& handler) { handler(error(), {}); }).problem, "D 7");
  EXPECT_EQ(answerOf("throws", [](const auto&) { throw std::runtime_error("no"); }).problem,
            "failed: no");
  EXPECT_EQ(answerOf("throws other", [](const auto&) { throw 5; }).problem, "failed");
  EXPECT_EQ(answerOf("silent", [](const auto&) {}).problem, "did not answer within 20 ms");
}

TEST(LogModules, TakeNothingFromOneAnother) {
  const auto offers = [](const auto& handler) { handler(nullptr, {file(nullptr)}); };
  const std::vector<std::shared_ptr<Module>> modules{
      std::make_shared<Module>("before", offers),
      std::make_shared<Module>("broken", [](const auto&) { throw 5; }),
      std::make_shared<Module>("after", offers)};
  for (const auto& module : modules) KQLogger::sharedLogger().addModule(module);
  std::map<std::string, std::size_t> files;
  for (const ModuleFiles& answer : askLogModules(kShortTimeout))
    files[answer.identifier] = answer.files.size();
  EXPECT_EQ(files["before"], 1U);
  EXPECT_EQ(files["broken"], 0U);
  EXPECT_EQ(files["after"], 1U);
  for (const auto& module : modules) module->retire();
}

TEST(LogModules, AreTakenByTheirFirstAnswer) {
  const ModuleFiles answer = answerOf("twice", [](const auto& handler) {
    handler(nullptr, {file(nullptr)});
    handler(error(), {});
    throw std::runtime_error("afterwards");
  });
  EXPECT_EQ(answer.files.size(), 1U);
  EXPECT_EQ(answer.problem, "failed: afterwards");
}

TEST(LogModules, MayAnswerFromAnotherThreadAndTooLate) {
  std::thread late;
  KQLogFile::ResultHandler kept;
  const auto answering = file([&](const auto&, const auto& handler) {
    late = std::thread([handler] { handler(nullptr, nullptr, NSData::dataWithBytes({}), false); });
  });
  EXPECT_EQ(readModuleFile(answering, kModuleTimeout).problem, "");
  late.join();
  EXPECT_EQ(contentOf([&](const auto&, const auto& handler) { kept = handler; }).problem,
            "did not answer within 20 ms");
  kept(nullptr, nullptr, nullptr, false);  // nobody is waiting for it any more
}

TEST(LogModules, FilesAreDataOrPlaces) {
  const auto data = NSData::dataWithBytes({});
  const ModuleContent bytes =
      contentOf([&](const auto&, const auto& handler) { handler(nullptr, nullptr, data, false); });
  EXPECT_EQ(bytes.data, data);
  EXPECT_EQ(bytes.path, "");
  const ModuleContent place = contentOf([&](const auto&, const auto& handler) {
    handler(nullptr, NSURL::fileURLWithPath(str("/a b")), nullptr, true);
  });
  EXPECT_EQ(place.path, "/a b");
  EXPECT_TRUE(place.removePath);
  EXPECT_EQ(place.problem, "");
}

TEST(LogModules, FilesThatFailAreToldOf) {
  EXPECT_EQ(contentOf([](const auto&, const auto& handler) {
              handler(nullptr, NSURL::URLWithString(str("http://a/b")), nullptr, false);
            }).problem,
            "is at http://a/b, which is not a file");
  const ModuleContent half = contentOf([](const auto&, const auto& handler) {
    handler(error(), nullptr, NSData::dataWithBytes({}), false);
  });
  EXPECT_EQ(half.problem, "D 7");
  EXPECT_NE(half.data, nullptr);
  EXPECT_EQ(contentOf(nullptr).problem, "has no source");
  EXPECT_EQ(readModuleFile(nullptr).problem, "has no source");
  EXPECT_EQ(contentOf([](const auto&, const auto&) { throw std::runtime_error("no"); }).problem,
            "failed: no");
}

}  // namespace
}  // namespace tool
