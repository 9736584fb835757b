// SPDX-License-Identifier: Apache-2.0

// What a scripted platform answers, and what it records of each call.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <stdexcept>

#include "platform/foundation/FoundationProvider.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSNumber.h"
#include "platform/scripted/HelperImage.h"
#include "platform/scripted/ScriptedPlatform.h"
#include "platform/services/ServiceManagement.h"
#include "platform/xpc/NSXPCConnection.h"
#include "router-client/WLHIDEventRouterProtocols.h"

namespace {

using namespace platform;
using Lines = std::vector<std::string>;

class ScriptedProviders : public testing::Test {
 protected:
  [[nodiscard]] Lines taken() { return platform_.trace().take(); }
  ScriptedPlatform platform_;
};

std::string textOf(const std::shared_ptr<NSData>& data) {
  return data ? std::string(data->span().begin(), data->span().end()) : "nothing";
}

std::shared_ptr<NSError> error(std::int64_t code) {
  return NSError::errorWithDomain_code_userInfo(str("D"), code, nullptr);
}

// ---- Files

TEST_F(ScriptedProviders, AFileIsThereUntilItIsRemoved) {
  platform_.setFile("/a", {'t', 'e', 'x', 't'});
  EXPECT_EQ(textOf(NSData::dataWithContentsOfFile(str("/a"))), "text");
  platform_.removeFile("/other");
  platform_.setFile("/a", {'n', 'e', 'w'});
  EXPECT_EQ(textOf(NSData::dataWithContentsOfFile(str("/a"))), "new");
  platform_.removeFile("/a");
  EXPECT_EQ(NSData::dataWithContentsOfFile(str("/a")), nullptr);
  EXPECT_EQ(foundationProvider().load()->dataWithContentsOfFile(nullptr), nullptr);
  EXPECT_EQ(taken(),
            (Lines{"dataWithContentsOfFile:/a -> data", "dataWithContentsOfFile:/a -> data",
                   "dataWithContentsOfFile:/a -> nil", "dataWithContentsOfFile:nil -> nil"}));
}

TEST_F(ScriptedProviders, AFileIsReadAsOnePiece) {
  platform_.setFile("/a", {'x'});
  platform_.setFile("/empty", {});
  Lines calls;
  const auto read = [&](const char* path, bool looksGood) {
    return foundationProvider().load()->readFile(
        str(path),
        [&](std::string_view piece) {
          calls.push_back("look " + std::string(piece));
          return looksGood;
        },
        [&](std::string_view piece) {
          calls.push_back("take " + std::string(piece));
          return true;
        });
  };
  EXPECT_EQ(read("/a", true), 0);
  EXPECT_EQ(read("/a", false), 0);
  EXPECT_EQ(read("/empty", true), 0);
  EXPECT_EQ(read("/missing", true), ENOENT);
  EXPECT_EQ(calls, (Lines{"look x", "take x", "look x"}));
  EXPECT_EQ(taken(), (Lines{"readFile:/a -> bytes", "readFile:/a -> bytes",
                            "readFile:/empty -> bytes", "readFile:/missing -> no such file"}));
}

TEST_F(ScriptedProviders, TheBundleIsWhereItIsSaidToBe) {
  EXPECT_EQ(descriptionOf(NSBundle::mainBundle()->bundlePath()), "/Applications/Example.app");
  platform_.setMainBundlePath(str("/b"));
  EXPECT_EQ(descriptionOf(NSBundle::mainBundle()->bundlePath()), "/b");
  platform_.setMainBundlePath(nullptr);
  EXPECT_EQ(NSBundle::mainBundle()->bundlePath(), nullptr);
  EXPECT_EQ(taken(), (Lines{"mainBundle bundlePath -> /Applications/Example.app",
                            "mainBundle bundlePath -> /b", "mainBundle bundlePath -> nil"}));
}

TEST_F(ScriptedProviders, APropertyListOfTheScriptStandsForItsBytesOnly) {
  const auto parse = [](std::string_view text) {
    return NSPropertyListSerialization::propertyListWithData_options_format_error(
        NSData::dataWithBytes({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}), 0,
        nullptr, nullptr);
  };
  platform_.setPropertyList("bytes", str("scripted"));
  EXPECT_EQ(descriptionOf(parse("bytes")), "scripted");
  EXPECT_EQ(descriptionOf(parse("<plist><string>real</string></plist>")), "real");
  EXPECT_EQ(parse("byte"), nullptr);
  platform_.removePropertyList("other");
  EXPECT_EQ(descriptionOf(parse("bytes")), "scripted");
  EXPECT_EQ(taken(), (Lines{"propertyListWithData: -> scripted", "propertyListWithData: -> real",
                            "propertyListWithData: -> nil", "propertyListWithData: -> scripted"}));
}

TEST_F(ScriptedProviders, TheDefaultCenterPostsAndWritesDown) {
  struct Listener {
    Lines heard;
    void hear(const std::shared_ptr<NSNotification>& note) {
      heard.push_back(descriptionOf(note->name()) + " of " + descriptionOf(note->object()));
    }
  };
  const auto listener = std::make_shared<Listener>();
  const auto center = NSNotificationCenter::defaultCenter();
  center->addObserver_selector_name_object(notificationObserver(listener, "hear:", &Listener::hear),
                                           str("N"), nullptr);
  center->postNotificationName_object(str("N"), str("sender"));
  center->removeObserver_name_object(listener.get(), str("N"), nullptr);
  center->postNotificationName_object(str("N"), nullptr);
  EXPECT_EQ(listener->heard, Lines{"N of sender"});
  const auto events = platform_.trace().events();
  ASSERT_EQ(events.size(), 4U);
  EXPECT_EQ(events[0].kind, TraceKind::Notification);
  EXPECT_EQ(events[0].object, "defaultCenter");
  EXPECT_EQ(events[0].name, "addObserver:selector:name:object:");
  EXPECT_EQ(events[0].arguments, (Lines{"hear:", "N", "nil"}));
  EXPECT_EQ(events[1].arguments, (Lines{"N", "sender"}));
  EXPECT_EQ(events[2].arguments, (Lines{"N", "nil"}));
  EXPECT_EQ(taken(), (Lines{"defaultCenter addObserver:selector:hear: name:N object:nil",
                            "defaultCenter postNotificationName:N object:sender",
                            "defaultCenter removeObserver: name:N object:nil",
                            "defaultCenter postNotificationName:N object:nil"}));
}

TEST_F(ScriptedProviders, ALineOfTheSystemLogIsWrittenDown) {
  NSLog("a %d", 5);
  const auto events = platform_.trace().events(TraceKind::Log);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].object, "NSLog");
  EXPECT_EQ(events[0].arguments, Lines{"a 5"});
  EXPECT_EQ(events[0].text, "NSLog a 5");
}

// ---- Jobs and authorization

TEST_F(ScriptedProviders, TheNextJobsComeBeforeTheJobOfALabel) {
  const auto job = ScriptedPlatform::helperJob("l");
  const auto next = ScriptedPlatform::helperJob("next");
  const auto ask = [](const std::shared_ptr<NSString>& label) {
    return SMJobCopyDictionary(kSMDomainSystemLaunchd, label);
  };
  platform_.setJob("l", job);
  platform_.setNextJobs({next, nullptr});
  EXPECT_EQ(ask(str("l")), next);
  EXPECT_EQ(ask(str("l")), nullptr);
  EXPECT_EQ(ask(str("l")), job);
  EXPECT_EQ(ask(str("m")), nullptr);
  EXPECT_EQ(ask(nullptr), nullptr);
  EXPECT_EQ(taken().at(4), "SMJobCopyDictionary(kSMDomainSystemLaunchd, nil) -> nil");
}

TEST_F(ScriptedProviders, AnInstalledHelperHasAJobAndAnImageUntilItIsUninstalled) {
  platform_.installHelper("l", "7");
  const auto job = SMJobCopyDictionary(kSMDomainSystemLaunchd, str("l"));
  ASSERT_NE(job, nullptr);
  EXPECT_EQ(descriptionOf(job->objectForKey("Label")), "l");
  const std::string path = "/Library/PrivilegedHelperTools/l";
  EXPECT_EQ(
      descriptionOf(objectCast<NSArray>(job->objectForKey("ProgramArguments"))->objectAtIndex(0)),
      path);
  const auto image = helperImageWithInfoPlist(infoPlistWithVersion("7"));
  EXPECT_EQ(textOf(NSData::dataWithContentsOfFile(str(path))),
            std::string(image.begin(), image.end()));
  platform_.setBundleCopy("l", "7");
  EXPECT_EQ(textOf(NSData::dataWithContentsOfFile(
                str("/Applications/Example.app/Contents/Library/LaunchServices/l"))),
            std::string(image.begin(), image.end()));
  platform_.uninstallHelper("l");
  EXPECT_EQ(SMJobCopyDictionary(kSMDomainSystemLaunchd, str("l")), nullptr);
  EXPECT_EQ(NSData::dataWithContentsOfFile(str(path)), nullptr);
}

TEST_F(ScriptedProviders, RemovalAndBlessGoAsTheScriptSays) {
  std::shared_ptr<NSError> why;
  AuthorizationRef none = nullptr;
  EXPECT_FALSE(SMJobRemove("d", str("l"), none, true, &why));
  EXPECT_FALSE(SMJobBless("d", str("l"), none, &why));
  EXPECT_EQ(why, nullptr);
  platform_.setRemoval([] { return ScriptedOutcome{false, error(1)}; });
  platform_.setBless([] { return ScriptedOutcome{true, nullptr}; });
  EXPECT_FALSE(SMJobRemove("d", str("l"), none, false, &why));
  EXPECT_EQ(why->code(), 1);
  EXPECT_FALSE(SMJobRemove("d", str("l"), none, false, nullptr));
  EXPECT_TRUE(SMJobBless("d", str("l"), none, &why));
  EXPECT_EQ(why->code(), 1) << "nothing failed, so nothing is said";
  EXPECT_EQ(taken(), (Lines{"SMJobRemove(d, l, authorization null, wait=true)",
                            "SMJobBless(d, l, authorization null)",
                            "SMJobRemove(d, l, authorization null, wait=false)",
                            "SMJobRemove(d, l, authorization null, wait=false)",
                            "SMJobBless(d, l, authorization null)"}));
}

TEST_F(ScriptedProviders, AuthorizationsAreNumberedInTheTrace) {
  AuthorizationRef first = nullptr;
  AuthorizationRef second = nullptr;
  EXPECT_EQ(AuthorizationCreate(nullptr, nullptr, 3, &first), errAuthorizationSuccess);
  EXPECT_EQ(AuthorizationCreate(nullptr, nullptr, 3, &second), errAuthorizationSuccess);
  EXPECT_EQ(AuthorizationCreate(nullptr, nullptr, 3, nullptr), errAuthorizationSuccess);
  EXPECT_NE(first, nullptr);
  EXPECT_NE(first, second);
  (void)SMJobBless("d", str("l"), second, nullptr);
  (void)SMJobRemove("d", str("l"), first, true, nullptr);
  char elsewhere = 0;
  (void)SMJobBless("d", str("l"), reinterpret_cast<AuthorizationRef>(&elsewhere), nullptr);
  const auto lines = taken();
  EXPECT_EQ(lines.at(3), "SMJobBless(d, l, authorization 2)");
  EXPECT_EQ(lines.at(4), "SMJobRemove(d, l, authorization 1, wait=true)");
  EXPECT_EQ(lines.at(5), "SMJobBless(d, l, authorization unknown)");
}

TEST_F(ScriptedProviders, ADeniedAuthorizationIsNoneAndItsItemsAreWrittenDown) {
  platform_.setAuthorizationStatus(errAuthorizationDenied);
  const std::array<AuthorizationItem, 2> items{AuthorizationItem{"right", 0, nullptr, 1},
                                               AuthorizationItem{"prompt", 2, "hi there", 0}};
  const AuthorizationItemSet rights{2, items.data()};
  const AuthorizationItemSet none{};
  AuthorizationRef authorization = reinterpret_cast<AuthorizationRef>(&authorization);
  EXPECT_EQ(AuthorizationCreate(&rights, &none, 19, &authorization), errAuthorizationDenied);
  EXPECT_EQ(authorization, nullptr);
  EXPECT_EQ(taken(),
            Lines{"AuthorizationCreate(rights={right length=0 value=null flags=1, prompt length=2 "
                  "value=hi flags=0}, environment={}, flags=19) -> -60005"});
}

// ---- Connections

TEST_F(ScriptedProviders, ConnectionsAreNumberedFromOne) {
  EXPECT_THROW((void)platform_.connection(0), std::out_of_range);
  EXPECT_THROW((void)platform_.connection(1), std::out_of_range);
  const auto one = NSXPCConnection::initWithMachServiceName_options(str("s"), 5);
  const auto two = NSXPCConnection::initWithMachServiceName_options(nullptr, 0);
  EXPECT_EQ(platform_.connectionCount(), 2U);
  EXPECT_EQ(platform_.connection(1)->number(), 1);
  EXPECT_EQ(platform_.connection(2)->number(), 2);
  try {
    (void)platform_.connection(3);
    FAIL() << "there are two";
  } catch (const std::out_of_range& none) {
    EXPECT_STREQ(none.what(), "there is no connection 3");
  }
  platform_.refuseConnections();
  EXPECT_EQ(NSXPCConnection::initWithMachServiceName_options(str("s"), 0), nullptr);
  EXPECT_EQ(taken(), (Lines{"connection 1 initWithMachServiceName:s options:5",
                            "connection 2 initWithMachServiceName:nil options:0",
                            "no connection initWithMachServiceName:s options:0"}));
}

TEST_F(ScriptedProviders, AnInterfaceTakesTheClassesThatAreWrittenDown) {
  const auto& protocol = WLHIDEventRouterClientProtocol::protocol();
  const auto interface = NSXPCInterface::interfaceWithProtocol(protocol);
  interface->setClasses_forSelector_argumentIndex_ofReply({&NSNumber::classObject()},
                                                          "receivedElementValues:", 0, false);
  EXPECT_EQ(
      interface->classesForMethod(protocol.indexOfSelector("receivedElementValues:"), 0, false),
      (NSClassSet{&NSNumber::classObject()}));
  platform_.refuseInterface("WLHIDEventRouterClientProtocol");
  EXPECT_EQ(NSXPCInterface::interfaceWithProtocol(protocol), nullptr);
  EXPECT_NE(NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol()), nullptr);
  const auto events = platform_.trace().events();
  EXPECT_EQ(events.at(1).object, "interface WLHIDEventRouterClientProtocol");
  EXPECT_EQ(events.at(1).arguments, (Lines{"(NSNumber)", "receivedElementValues:", "0", "NO"}));
  EXPECT_EQ(taken(), (Lines{"interfaceWithProtocol:WLHIDEventRouterClientProtocol",
                            "interface WLHIDEventRouterClientProtocol setClasses:(NSNumber) "
                            "forSelector:receivedElementValues: argumentIndex:0 ofReply:NO",
                            "interfaceWithProtocol:WLHIDEventRouterClientProtocol -> nil",
                            "interfaceWithProtocol:WLHIDEventRouterProtocol"}));
}

// ---- Events

/// Kind, object, name and arguments on one line.
std::string fieldsOf(const TraceEvent& event) {
  std::string line = std::to_string(static_cast<int>(event.kind)) + " | " + event.object + " | " +
                     event.name + " |";
  for (const std::string& argument : event.arguments) line += " " + argument + ";";
  return line;
}

TEST_F(ScriptedProviders, EveryQuestionIsAnEventWithItsObjectNameAndArguments) {
  const auto nothing = [](std::string_view) { return true; };
  AuthorizationRef authorization = nullptr;
  (void)NSData::dataWithContentsOfFile(str("/a"));
  (void)foundationProvider().load()->readFile(str("/b"), nothing, nothing);
  (void)NSBundle::mainBundle()->bundlePath();
  (void)NSPropertyListSerialization::propertyListWithData_options_format_error(
      NSData::dataWithBytes({}), 0, nullptr, nullptr);
  (void)SMJobCopyDictionary("d", str("l"));
  (void)AuthorizationCreate(nullptr, nullptr, 3, &authorization);
  (void)SMJobRemove("d", str("l"), authorization, true, nullptr);
  (void)SMJobRemove("d", str("l"), authorization, false, nullptr);
  (void)SMJobBless("d", str("l"), authorization, nullptr);
  const auto interface =
      NSXPCInterface::interfaceWithProtocol(WLHIDEventRouterProtocol::protocol());
  interface->setClasses_forSelector_argumentIndex_ofReply(
      {&NSError::classObject()}, WLHIDEventRouterProtocol::protocol().methods[0].selector, 0, true);
  const auto connection = NSXPCConnection::initWithMachServiceName_options(str("s"), 5);
  connection->setRemoteObjectInterface(interface);
  connection->resume();
  NSNotificationCenter::defaultCenter()->postNotificationName_object(str("N"), nullptr);
  NSNotificationCenter::defaultCenter()->removeObserver_name_object(nullptr, str("N"), nullptr);
  NSLog("text");
  KQLogger::sharedLogger().logAtLevel_function_sourcePath_sourceLine_tags_message(
      2, "function", "path", 42, nullptr, "%d", 1);
  Lines fields;
  for (const TraceEvent& each : platform_.trace().events()) fields.push_back(fieldsOf(each));
  EXPECT_EQ(
      fields,
      (Lines{"0 | foundation | dataWithContentsOfFile: | /a;", "0 | foundation | readFile: | /b;",
             "0 | mainBundle | bundlePath |", "0 | foundation | propertyListWithData: |",
             "0 | services | SMJobCopyDictionary | d; l;",
             "0 | services | AuthorizationCreate | null; null; 3;",
             "0 | services | SMJobRemove | d; l; 1; true;",
             "0 | services | SMJobRemove | d; l; 1; false;", "0 | services | SMJobBless | d; l; 1;",
             "0 | NSXPCInterface | interfaceWithProtocol: | WLHIDEventRouterProtocol;",
             "0 | interface WLHIDEventRouterProtocol | "
             "setClasses:forSelector:argumentIndex:ofReply: | (NSError); "
             "startRoutingServiceWithEntryID:deviceMode:tagDictionary:typeDictionary:reply:; 0; "
             "YES;",
             "1 | connection 1 | initWithMachServiceName:options: | s; 5;",
             "1 | connection 1 | setRemoteObjectInterface: | WLHIDEventRouterProtocol;",
             "1 | connection 1 | resume |",
             "3 | defaultCenter | postNotificationName:object: | N; nil;",
             "3 | defaultCenter | removeObserver:name:object: | N; nil;", "4 | NSLog |  | text;",
             "4 | path | function | 2; 42; 1;"}));
}

// ---- The platform as a whole

TEST(ScriptedPlatformLife, PutsBackWhatWasThereBefore) {
  const auto foundation = foundationProvider().load();
  const auto services = servicesProvider().load();
  const auto xpc = xpcProvider().load();
  const auto sink = std::make_shared<KQLogSink>([](const KQLogEntry&) {});
  const auto sinkBefore = KQLogger::sharedLogger().setSink(sink);
  const auto levelBefore = KQLogger::logLevel();
  KQLogger::setLogLevel(7);
  {
    ScriptedPlatform platform;
    EXPECT_EQ(KQLogger::logLevel(), 0U);
    platform.setLogLevel(3);
    EXPECT_EQ(KQLogger::logLevel(), 3U);
    EXPECT_NE(foundationProvider().load(), foundation);
    EXPECT_NE(servicesProvider().load(), services);
    EXPECT_NE(xpcProvider().load(), xpc);
  }
  EXPECT_EQ(KQLogger::logLevel(), 7U);
  KQLogger::setLogLevel(levelBefore);
  EXPECT_EQ(KQLogger::sharedLogger().setSink(sinkBefore), sink);
  EXPECT_EQ(foundationProvider().load(), foundation);
  EXPECT_EQ(servicesProvider().load(), services);
  EXPECT_EQ(xpcProvider().load(), xpc);
}

// ---- The image of a helper

std::uint64_t numberAt(const std::vector<std::uint8_t>& bytes, std::size_t offset,
                       std::size_t width) {
  std::uint64_t number = 0;
  for (std::size_t i = width; i-- > 0;) number = number << 8 | bytes.at(offset + i);
  return number;
}

std::string nameAt(const std::vector<std::uint8_t>& bytes, std::size_t offset) {
  const std::string field(bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                          bytes.begin() + static_cast<std::ptrdiff_t>(offset) + 16);
  return field.substr(0, field.find('\0'));
}

// The fields are where the executable format defines them.
TEST(HelperImage, IsAnExecutableOfOneSegmentWithThePropertyListInIt) {
  const std::string list = "a property list";
  const auto image = helperImageWithInfoPlist(list);
  constexpr std::size_t kSegment = 32;
  constexpr std::size_t kSection = 104;
  constexpr std::size_t kContent = 184;
  ASSERT_EQ(image.size(), kContent + list.size());
  EXPECT_EQ(numberAt(image, 0, 4), 0xFEEDFACFU);
  EXPECT_EQ(numberAt(image, 4, 4), 0x01000007U);
  EXPECT_EQ(numberAt(image, 8, 4), 0U);
  EXPECT_EQ(numberAt(image, 12, 4), 2U);
  EXPECT_EQ(numberAt(image, 16, 4), 1U);
  EXPECT_EQ(numberAt(image, 20, 4), 152U);
  EXPECT_EQ(numberAt(image, 24, 8), 0U);
  EXPECT_EQ(numberAt(image, kSegment, 4), 0x19U);
  EXPECT_EQ(numberAt(image, kSegment + 4, 4), 152U);
  EXPECT_EQ(nameAt(image, kSegment + 8), "__TEXT");
  EXPECT_EQ(numberAt(image, kSegment + 40, 8), 0U);
  EXPECT_EQ(numberAt(image, kSegment + 48, 8), image.size());
  EXPECT_EQ(numberAt(image, kSegment + 56, 8), 0U);
  EXPECT_EQ(numberAt(image, kSegment + 64, 4), 1U);
  EXPECT_EQ(numberAt(image, kSegment + 68, 4), 0U);
  EXPECT_EQ(nameAt(image, kSection), "__info_plist");
  EXPECT_EQ(nameAt(image, kSection + 16), "__TEXT");
  EXPECT_EQ(numberAt(image, kSection + 32, 8), 0U);
  EXPECT_EQ(numberAt(image, kSection + 40, 8), list.size());
  EXPECT_EQ(numberAt(image, kSection + 48, 4), kContent);
  EXPECT_EQ(numberAt(image, kSection + 52, 4), 0U);
  EXPECT_EQ(std::string(image.begin() + kContent, image.end()), list);
}

}  // namespace
