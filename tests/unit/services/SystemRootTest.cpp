// SPDX-License-Identifier: Apache-2.0

#include "platform/services/SystemRoot.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>

#include "platform/services/FileDescriptor.h"
#include "platform/services/UnixSocket.h"
#include "tests/support/ScopedVariable.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using platform::SystemRoot;
using Variable = testsupport::ScopedVariable;

/// A system on which nothing is installed.
class BareSystem {
 public:
  BareSystem() { SystemRoot::setSystemForTests("/proc/self/fdinfo"); }
  BareSystem(const BareSystem&) = delete;
  BareSystem& operator=(const BareSystem&) = delete;
  ~BareSystem() { SystemRoot::setSystemForTests({}); }
};

TEST(SystemRoot, PathsLieBelowTheRoot) {
  const SystemRoot root("/some/where");
  EXPECT_EQ(root.jobFile("com.x"), "/some/where/Library/LaunchDaemons/com.x.plist");
  EXPECT_EQ(root.helperTool("com.x"), "/some/where/Library/PrivilegedHelperTools/com.x");
  EXPECT_EQ(root.endpoint("com.x"), "/some/where/var/run/com.x.sock");
  EXPECT_EQ(root.controlEndpoint(), "/some/where/var/run/jobd.sock");
  EXPECT_EQ(root.systemLog(), "/some/where/var/log/system.log");
  EXPECT_EQ(root.deviceSources(), "/some/where/etc/hideventrouter");
}

TEST(SystemRoot, IsMadeAbsoluteAndPlain) {
  EXPECT_EQ(SystemRoot("/a/./b//c/../d/").path(), "/a/b/d");
  EXPECT_TRUE(SystemRoot("relative").path().is_absolute());
  EXPECT_TRUE(SystemRoot("/").isSystem());
  EXPECT_TRUE(SystemRoot("/a/..").isSystem());
  EXPECT_TRUE(SystemRoot("//").isSystem());
  EXPECT_FALSE(SystemRoot("/a").isSystem());
}

TEST(SystemRoot, TheSystemsOwnHasItsOwnPlaces) {
  const SystemRoot root("/");
  EXPECT_EQ(root.jobFile("com.x"), "/var/lib/wlhid/jobs/com.x.plist");
  EXPECT_EQ(root.helperTool("com.x"), "/var/lib/wlhid/helpers/com.x");
  EXPECT_EQ(root.endpoint("com.x"), "/run/wlhid/com.x.sock");
  EXPECT_EQ(root.controlEndpoint(), "/run/wlhid/jobd.sock");
  EXPECT_EQ(root.systemLog(), "/var/log/system.log");
}

TEST(SystemRoot, TheSystemsOwnIsKnownByItsDirectory) {
  EXPECT_TRUE(
      SystemRoot(platform::FileDescriptor(::open("/", O_PATH | O_CLOEXEC)), "/a").isSystem());
  const testsupport::TemporaryDirectory temporary;
  const std::string path = temporary.path();
  EXPECT_FALSE(SystemRoot(platform::FileDescriptor(::open(path.c_str(), O_PATH | O_CLOEXEC)), "/")
                   .isSystem())
      << "its path says nothing";
  std::filesystem::create_directory_symlink("/", temporary.path() / "link");
  EXPECT_FALSE(SystemRoot(temporary.path() / "link").isSystem()) << "links are not followed";
}

TEST(SystemRoot, IsTheSystemsOwnByDefaultIfTheRouterIsInstalledThere) {
  SystemRoot::resetCurrent();
  const testsupport::TemporaryDirectory system;
  SystemRoot::setSystemForTests(system.path());
  const Variable root("WLHID_ROOT", nullptr);
  const Variable state("XDG_STATE_HOME", "/state");
  EXPECT_EQ(SystemRoot::current().path(), "/state/wlhid/root");
  std::filesystem::create_directories(system.path() / "usr/lib/wlhid/jobs");
  EXPECT_EQ(SystemRoot::current().path(), system.path());
  EXPECT_TRUE(SystemRoot::current().isSystem());
  const Variable chosen("WLHID_ROOT", "/chosen");
  EXPECT_EQ(SystemRoot::current().path(), "/chosen");
  SystemRoot::setSystemForTests({});
  EXPECT_FALSE(SystemRoot(system.path()).isSystem());
}

TEST(SystemRoot, IsTheSystemsOwnByDefaultIfASandboxHasOnlyTheRoutersEndpoint) {
  SystemRoot::resetCurrent();
  const testsupport::TemporaryDirectory system;
  SystemRoot::setSystemForTests(system.path());
  const Variable root("WLHID_ROOT", nullptr);
  const Variable state("XDG_STATE_HOME", "/state");
  const std::filesystem::path run = system.path() / "run/wlhid";
  std::filesystem::create_directories(run);
  const auto listenAt = [&](const char* name) {
    return platform::listenUnixSocketAt(platform::FileDescriptor(::open(run.c_str(), O_PATH)).get(),
                                        name, SOCK_STREAM, 1, 0600);
  };
  const auto daemons = listenAt("jobd.sock");
  testsupport::writeFile(run / "com.quillmar.hideventrouter.txt", "no endpoint");
  EXPECT_EQ(SystemRoot::current().path(), "/state/wlhid/root");
  const auto routers = listenAt("com.quillmar.hideventrouter.devices.sock");
  EXPECT_EQ(SystemRoot::current().path(), system.path());
  SystemRoot::setSystemForTests({});
}

TEST(SystemRoot, LabelsAreFileNames) {
  EXPECT_TRUE(SystemRoot::isValidLabel("com.quillmar.hideventrouter"));
  EXPECT_TRUE(SystemRoot::isValidLabel("a-b_C9"));
  EXPECT_TRUE(SystemRoot::isValidLabel(std::string(200, 'a')));
  for (const std::string bad :
       {"", ".", "..", ".hidden", "a/b", "../a", "a b", "a\n", "\xC3\xA4", "a:b"}) {
    EXPECT_FALSE(SystemRoot::isValidLabel(bad)) << bad;
    EXPECT_THROW((void)SystemRoot("/r").jobFile(bad), std::invalid_argument) << bad;
  }
  EXPECT_FALSE(SystemRoot::isValidLabel(std::string(201, 'a')));
  EXPECT_FALSE(SystemRoot::isValidLabel(std::string_view("a\0b", 3)));
}

TEST(SystemRoot, CurrentAsksTheEnvironmentInOrder) {
  SystemRoot::resetCurrent();
  const BareSystem system;
  const Variable root("WLHID_ROOT", "/chosen");
  const Variable state("XDG_STATE_HOME", "/state");
  const Variable home("HOME", "/home/me");
  EXPECT_EQ(SystemRoot::current().path(), "/chosen");
  const Variable noRoot("WLHID_ROOT", nullptr);
  EXPECT_EQ(SystemRoot::current().path(), "/state/wlhid/root");
  const Variable relative("XDG_STATE_HOME", "not/absolute");
  EXPECT_EQ(SystemRoot::current().path(), "/home/me/.local/state/wlhid/root");
  const Variable noHome("HOME", nullptr);
  EXPECT_THROW((void)SystemRoot::current(), std::runtime_error);
}

TEST(SystemRoot, TheOneThatWasSetGoesBeforeTheEnvironment) {
  const Variable root("WLHID_ROOT", "/chosen");
  SystemRoot::setCurrent(SystemRoot("/set"));
  EXPECT_EQ(SystemRoot::current().path(), "/set");
  SystemRoot::resetCurrent();
  EXPECT_EQ(SystemRoot::current().path(), "/chosen");
}

TEST(SystemRoot, LabelsHaveLettersDigitsAndThreeSigns) {
  const std::string_view allowed =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_";
  for (int i = 0; i < 256; ++i) {
    const char c = static_cast<char>(i);
    EXPECT_EQ(SystemRoot::isValidLabel(std::string("x") + c), allowed.find(c) != allowed.npos) << i;
  }
}

TEST(SystemRoot, AnEmptyVariableIsNoChoice) {
  SystemRoot::resetCurrent();
  const BareSystem system;
  const Variable root("WLHID_ROOT", "");
  const Variable state("XDG_STATE_HOME", "/state");
  EXPECT_EQ(SystemRoot::current().path(), "/state/wlhid/root");
}

TEST(SystemRoot, WithoutAnAbsoluteHomeThereIsNone) {
  SystemRoot::resetCurrent();
  const BareSystem system;
  const Variable root("WLHID_ROOT", nullptr);
  const Variable state("XDG_STATE_HOME", nullptr);
  const Variable home("HOME", "home/me");
  try {
    (void)SystemRoot::current();
    ADD_FAILURE() << "there is one";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(),
                 "no system root: WLHID_ROOT, XDG_STATE_HOME and HOME are all unset or not "
                 "absolute");
  }
}

TEST(SystemRoot, OfAPathIsNotOpenAndOfADescriptorIs) {
  EXPECT_EQ(SystemRoot("/a").directory(), -1);
  const int descriptor = ::open("/", O_PATH | O_CLOEXEC);
  const SystemRoot root(platform::FileDescriptor(descriptor), "/as/told");
  const SystemRoot copy = root;
  EXPECT_EQ(copy.directory(), descriptor);
  EXPECT_EQ(copy.path(), "/as/told");
}

}  // namespace
