// SPDX-License-Identifier: Apache-2.0

#include "platform/services/UnixSocket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/services/ServiceError.h"
#include "platform/services/SystemRoot.h"
#include "tests/support/ScopedVariable.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/services/PiecewiseCalls.h"

namespace {

using platform::FileDescriptor;
using testsupport::TemporaryDirectory;
using Outcome = platform::ServiceConnectResult::Outcome;
namespace fs = std::filesystem;

bool areJoined(int listener, int client) {
  const FileDescriptor server(::accept(listener, nullptr, nullptr));
  char c = 0;
  return server && ::send(client, "x", 1, 0) == 1 && ::recv(server.get(), &c, 1, 0) == 1 &&
         c == 'x';
}

fs::path deepBelow(const fs::path& start) {
  fs::path deep = start;
  for (int i = 0; i < 20; ++i) deep /= "a-rather-long-name-of-a-directory";
  fs::create_directories(deep);
  return deep;
}

TEST(UnixSocket, PathsOfAnyLengthWork) {
  const TemporaryDirectory directory;
  const fs::path deep = deepBelow(directory.path());
  ASSERT_GT(deep.string().size(), 107U);
  for (const std::string& name : {std::string("short"), std::string(205, 'n')}) {
    const std::string path = (deep / name).string();
    const FileDescriptor listener(platform::listenUnixSocket(path, SOCK_STREAM, 8, 0600));
    ASSERT_TRUE(listener) << errno;
    const FileDescriptor client(platform::connectUnixSocket(path, SOCK_STREAM));
    ASSERT_TRUE(client) << errno;
    EXPECT_TRUE(areJoined(listener.get(), client.get()));
  }
}

TEST(UnixSocket, FileHasTheModeAndNothingIsLeftBeside) {
  const TemporaryDirectory directory;
  const FileDescriptor listener(
      platform::listenUnixSocket((directory.path() / "s").string(), SOCK_STREAM, 8, 0622));
  struct stat status {};
  ASSERT_EQ(::stat((directory.path() / "s").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0622U);
  EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), fs::directory_iterator()), 1);
}

TEST(UnixSocket, ListeningTakesThePlaceOfWhatWasThere) {
  const TemporaryDirectory directory;
  const std::string path = (directory.path() / "s").string();
  const FileDescriptor first(platform::listenUnixSocket(path, SOCK_STREAM, 8, 0600));
  const FileDescriptor second(platform::listenUnixSocket(path, SOCK_STREAM, 8, 0600));
  const FileDescriptor client(platform::connectUnixSocket(path, SOCK_STREAM));
  ASSERT_TRUE(client);
  EXPECT_TRUE(areJoined(second.get(), client.get()));
}

TEST(UnixSocket, ConnectSaysWhyNot) {
  const TemporaryDirectory directory;
  const auto failure = [](const fs::path& path) {
    errno = 0;
    EXPECT_EQ(platform::connectUnixSocket(path.string(), SOCK_STREAM), -1);
    return errno;
  };
  EXPECT_EQ(failure(directory.path() / "none"), ENOENT);
  EXPECT_EQ(failure(directory.path() / "none/below"), ENOENT);
  testsupport::writeFile(directory.path() / "file", "");
  EXPECT_EQ(failure(directory.path() / "file"), ENOTSOCK);
  {
    const FileDescriptor gone(
        platform::listenUnixSocket((directory.path() / "dead").string(), SOCK_STREAM, 1, 0600));
  }
  EXPECT_EQ(failure(directory.path() / "dead"), ECONNREFUSED);
}

TEST(UnixSocket, LinksAreNotFollowed) {
  const TemporaryDirectory directory;
  const FileDescriptor listener(
      platform::listenUnixSocket((directory.path() / "s").string(), SOCK_STREAM, 8, 0600));
  fs::create_symlink("s", directory.path() / "link");
  EXPECT_EQ(platform::connectUnixSocket((directory.path() / "link").string(), SOCK_STREAM), -1);
  EXPECT_EQ(errno, ENOTSOCK);
}

TEST(UnixSocket, PeerIsWhoTheKernelSays) {
  const TemporaryDirectory directory;
  const std::string path = (directory.path() / "s").string();
  const FileDescriptor listener(platform::listenUnixSocket(path, SOCK_STREAM, 8, 0600));
  const FileDescriptor client(platform::connectUnixSocket(path, SOCK_STREAM));
  const auto peer = platform::peerCredentials(client.get());
  ASSERT_TRUE(peer);
  EXPECT_EQ(peer->user, ::geteuid());
  EXPECT_EQ(peer->process, ::getpid());
}

TEST(RootFiles, DirectoriesAreNotReachedThroughLinks) {
  const TemporaryDirectory directory;
  fs::create_directories(directory.path() / "real/below");
  fs::create_symlink("real", directory.path() / "link");
  const auto root = platform::openRoot(platform::SystemRoot(directory.path()));
  EXPECT_TRUE(platform::openDirectoryBelow(root.get(), "real/below", false));
  EXPECT_FALSE(platform::openDirectoryBelow(root.get(), "real/none", false));
  EXPECT_THROW((void)platform::openDirectoryBelow(root.get(), "link/below", false),
               platform::ServiceError);
  EXPECT_THROW((void)platform::openDirectoryBelow(root.get(), "link/below", true),
               platform::ServiceError);
}

TEST(RootFiles, OnlyRegularFilesOfABoundedSizeAreRead) {
  const TemporaryDirectory directory;
  const auto root = platform::openRoot(platform::SystemRoot(directory.path()));
  testsupport::writeFile(directory.path() / "file", "12345");
  fs::create_symlink("file", directory.path() / "link");
  ASSERT_EQ(::mkfifo((directory.path() / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(platform::readFileIn(root.get(), "file", 5)->size(), 5U);
  EXPECT_FALSE(platform::readFileIn(root.get(), "none", 5));
  EXPECT_THROW((void)platform::readFileIn(root.get(), "file", 4), platform::ServiceError);
  EXPECT_THROW((void)platform::readFileIn(root.get(), "link", 5), platform::ServiceError);
  EXPECT_THROW((void)platform::readFileIn(root.get(), "pipe", 5), platform::ServiceError);
}

TEST(ServiceEndpoints, NamesWithoutAJobAreUnknown) {
  const TemporaryDirectory directory;
  platform::SystemRoot::setCurrent(platform::SystemRoot(directory.path() / "not-yet-there"));
  for (const std::string_view name : {"com.nobody", "", "../x", ".x"}) {
    const auto result = platform::serviceEndpoints().load()->connectToService(name);
    EXPECT_EQ(result.outcome, Outcome::UnknownName) << name;
    EXPECT_EQ(result.descriptor, -1);
    EXPECT_FALSE(result.reason.empty());
  }
}

/// A temporary root where services may listen.
struct CurrentRoot {
  CurrentRoot() {
    platform::SystemRoot::setCurrent(here);
    fs::create_directories(directory.path() / "var/run");
  }
  [[nodiscard]] fs::path endpoint(const std::string& service) const {
    return here.endpoint(service);
  }

  TemporaryDirectory directory;
  platform::SystemRoot here{directory.path()};
};

TEST(ServiceEndpoints, ConnectsToAnEndpointOfTheRootsOwner) {
  const CurrentRoot root;
  const FileDescriptor listener(
      platform::listenUnixSocket(root.endpoint("com.x").string(), SOCK_STREAM, 8, 0600));
  const auto result = platform::serviceEndpoints().load()->connectToService("com.x");
  ASSERT_EQ(result.outcome, Outcome::Connected) << result.reason;
  const FileDescriptor client(result.descriptor);
  EXPECT_NE(::fcntl(client.get(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(::fcntl(client.get(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_TRUE(areJoined(listener.get(), client.get()));
}

TEST(ServiceEndpoints, AFullBacklogIsAPassingShortage) {
  const CurrentRoot root;
  const FileDescriptor listener(
      platform::listenUnixSocket(root.endpoint("com.x").string(), SOCK_STREAM, 0, 0600));
  const FileDescriptor waiting(
      platform::connectUnixSocket(root.endpoint("com.x").string(), SOCK_STREAM | SOCK_NONBLOCK));
  EXPECT_EQ(platform::serviceEndpoints().load()->connectToService("com.x").outcome,
            Outcome::TryAgain);
}

TEST(ServiceEndpoints, InARootThatOthersCanWriteNothingIsConnectedTo) {
  const TemporaryDirectory directory;
  const platform::SystemRoot root(directory.path() / "root");
  platform::SystemRoot::setCurrent(root);
  fs::create_directories(root.path() / "var/run");
  const FileDescriptor listener(
      platform::listenUnixSocket(root.endpoint("com.x").string(), SOCK_STREAM, 8, 0600));
  ::chmod(root.path().c_str(), 0777);
  const auto result = platform::serviceEndpoints().load()->connectToService("com.x");
  EXPECT_EQ(result.outcome, Outcome::Refused);
  EXPECT_NE(result.reason.find("can be written by others"), std::string::npos) << result.reason;
}

TEST(ServiceEndpoints, ADirectoryThatIsNoneMakesTheNameUnknown) {
  const TemporaryDirectory directory;
  platform::SystemRoot::setCurrent(platform::SystemRoot(directory.path()));
  testsupport::writeFile(directory.path() / "var", "");
  EXPECT_EQ(platform::serviceEndpoints().load()->connectToService("com.x").outcome,
            Outcome::UnknownName);
}

TEST(ServiceEndpoints, AFileInTheEndpointsPlaceIsRefused) {
  const TemporaryDirectory directory;
  platform::SystemRoot::setCurrent(platform::SystemRoot(directory.path()));
  testsupport::writeFile(directory.path() / "var/run/com.x.sock", "");
  EXPECT_EQ(platform::serviceEndpoints().load()->connectToService("com.x").outcome,
            Outcome::Refused);
}

TEST(UnixSocket, WhatCannotTakeItsPlaceLeavesNothingAndSaysWhy) {
  const TemporaryDirectory directory;
  fs::create_directories(directory.path() / "s");
  const auto descriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto before = descriptors();
  errno = 0;
  EXPECT_EQ(platform::listenUnixSocket((directory.path() / "s").string(), SOCK_STREAM, 8, 0600),
            -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), fs::directory_iterator()), 1);
  EXPECT_EQ(descriptors(), before);
  EXPECT_EQ(
      platform::listenUnixSocket((directory.path() / "none/s").string(), SOCK_STREAM, 8, 0600), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(UnixSocket, OfAKindThatCannotListenIsRefusedAndLeavesNothing) {
  const TemporaryDirectory directory;
  const std::string path = (directory.path() / "s").string();
  EXPECT_EQ(platform::listenUnixSocket(path, SOCK_DGRAM, 8, 0600), -1);
  EXPECT_EQ(errno, EOPNOTSUPP);
  EXPECT_EQ(platform::listenUnixSocket(path, 0, 8, 0600), -1);
  EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST(UnixSocket, WhatAKilledProcessLeftUnderATemporaryNameIsReplaced) {
  const TemporaryDirectory directory;
  for (int i = 0; i < 200; ++i) {
    testsupport::writeFile(
        directory.path() / (".sock." + std::to_string(::getpid()) + "." + std::to_string(i)), "");
  }
  const FileDescriptor listener(
      platform::listenUnixSocket((directory.path() / "s").string(), SOCK_STREAM, 8, 0600));
  EXPECT_TRUE(listener) << errno;
}

TEST(UnixSocket, DescriptorsAreClosedByAnExec) {
  const TemporaryDirectory directory;
  const std::string path = (directory.path() / "s").string();
  const FileDescriptor listener(platform::listenUnixSocket(path, SOCK_STREAM, 8, 0600));
  const FileDescriptor client(platform::connectUnixSocket(path, SOCK_STREAM));
  for (const auto* each : {&listener, &client}) {
    EXPECT_EQ(::fcntl(each->get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(::fcntl(each->get(), F_GETFL) & O_NONBLOCK, 0);
  }
}

TEST(UnixSocket, PathsOfOneComponentLieInTheirDirectory) {
  errno = 0;
  EXPECT_EQ(platform::connectUnixSocket("/proc", SOCK_STREAM), -1);
  EXPECT_EQ(errno, ENOTSOCK) << "it is there, in the root directory";
  const TemporaryDirectory directory;
  const FileDescriptor listener(
      platform::listenUnixSocket((directory.path() / "s").string(), SOCK_STREAM, 8, 0600));
  const fs::path before = fs::current_path();
  fs::current_path(directory.path());
  EXPECT_TRUE(FileDescriptor(platform::connectUnixSocket("s", SOCK_STREAM)));
  fs::current_path(before);
}

TEST(UnixSocket, ADescriptorThatIsNotOpenHasNoPeer) {
  EXPECT_FALSE(platform::peerCredentials(-1));
}

TEST(ServiceEndpoints, AnInvalidServiceNameIsCalledInvalid) {
  const TemporaryDirectory directory;
  platform::SystemRoot::setCurrent(platform::SystemRoot(directory.path()));
  const auto endpoints = platform::serviceEndpoints().load();
  EXPECT_EQ(endpoints->connectToService("../x").reason, "it is not a valid service name");
  EXPECT_EQ(endpoints->connectToService("com.x").reason, "no job offers it");
  fs::create_directories(directory.path() / "Library/LaunchDaemons");
  EXPECT_EQ(endpoints->connectToService("com.x").reason, "no job offers it");
}

TEST(ServiceEndpoints, WithoutARootNothingIsKnown) {
  platform::SystemRoot::resetCurrent();
  const testsupport::ScopedVariable root("WLHID_ROOT", nullptr);
  const testsupport::ScopedVariable state("XDG_STATE_HOME", nullptr);
  const testsupport::ScopedVariable home("HOME", nullptr);
  const auto result = platform::serviceEndpoints().load()->connectToService("com.x");
  EXPECT_EQ(result.outcome, Outcome::UnknownName);
  EXPECT_EQ(result.reason.find("no system root: "), 0U) << result.reason;
}

TEST(ServiceEndpoints, AFailureSaysWhatItIs) {
  const CurrentRoot root;
  const auto result = [] { return platform::serviceEndpoints().load()->connectToService("com.x"); };
  {
    const FileDescriptor listener(
        platform::listenUnixSocket(root.endpoint("com.x").string(), SOCK_STREAM, 0, 0600));
    const FileDescriptor waiting(
        platform::connectUnixSocket(root.endpoint("com.x").string(), SOCK_STREAM | SOCK_NONBLOCK));
    EXPECT_EQ(result().reason, "the endpoint's backlog is full");
  }
  EXPECT_EQ(result().reason, "no job offers it") << "nobody listens on what was left behind";
  fs::remove(root.endpoint("com.x"));
  testsupport::writeFile(root.endpoint("com.x"), "");
  EXPECT_EQ(result().reason, "the endpoint cannot be used: Socket operation on non-socket");
  fs::remove(root.endpoint("com.x"));
  const FileDescriptor datagrams(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  root.endpoint("com.x").string().copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(datagrams.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
  EXPECT_EQ(result().outcome, Outcome::UnknownName);
  EXPECT_EQ(result().reason, "the endpoint cannot be reached: Protocol wrong type for socket");
}

TEST(RootFiles, WhatIsWrongWithAFileIsSaid) {
  const TemporaryDirectory directory;
  const auto root = platform::openRoot(platform::SystemRoot(directory.path()));
  testsupport::writeFile(directory.path() / "file", "12345");
  fs::create_symlink("file", directory.path() / "link");
  const auto failure = [&](const std::string& name, std::size_t most) -> std::string {
    try {
      (void)platform::readFileIn(root.get(), name, most);
    } catch (const platform::ServiceError& error) {
      EXPECT_EQ(error.code(), platform::ServiceErrorCode::FileSystem);
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(failure("file", 4), "file is larger than 4 bytes");
  EXPECT_EQ(failure(".", 4), ". is not a regular file");
  EXPECT_EQ(failure("link", 5), "cannot open link: Too many levels of symbolic links");
  piecewise::limitReads({2, 1});
  const auto bytes = platform::readFileIn(root.get(), "file", 5);
  EXPECT_EQ(std::string(bytes->begin(), bytes->end()), "12345");
  piecewise::limitReads({2, 0});
  EXPECT_EQ(failure("file", 5), "file shrank while it was being read");
}

TEST(RootFiles, ADescriptorIsReadFromItsFirstByte) {
  const TemporaryDirectory directory;
  testsupport::writeFile(directory.path() / "file", "12345");
  const FileDescriptor file(::open((directory.path() / "file").c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::lseek(file.get(), 3, SEEK_SET), 3);
  const auto bytes = platform::readDescriptor(file.get(), "it", 5);
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "12345");
  const auto failure = [](int descriptor) -> std::string {
    try {
      (void)platform::readDescriptor(descriptor, "it", 5);
    } catch (const platform::ServiceError& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(failure(-1), "cannot examine it: Bad file descriptor");
  const FileDescriptor written(::open((directory.path() / "file").c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(failure(written.get()), "cannot read it: Bad file descriptor");
}

TEST(RootFiles, LimitsAreThoseOfTheSystem) {
  EXPECT_EQ(platform::kMaximumJobFileBytes, 65'536U);
  EXPECT_EQ(platform::kMaximumHelperBytes, 67'108'864U);
}

TEST(RootFiles, NamesAreSortedAndTheDirectoryIsLeftAsItIs) {
  const TemporaryDirectory directory;
  for (const char* name : {"b", ".a", "c", "a"})
    testsupport::writeFile(directory.path() / name, "");
  const FileDescriptor open(::open(directory.path().c_str(), O_RDONLY | O_CLOEXEC));
  const auto descriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto before = descriptors();
  const std::vector<std::string> expected{".a", "a", "b", "c"};
  EXPECT_EQ(platform::namesIn(open.get()), expected);
  EXPECT_EQ(platform::namesIn(open.get()), expected) << "as often as it is asked";
  EXPECT_EQ(descriptors(), before);
  EXPECT_TRUE(platform::namesIn(-1).empty());
}

TEST(ServiceEndpoints, DescriptorsThatAreUsedUpAreAPassingShortage) {
  const CurrentRoot root;
  const FileDescriptor listener(
      platform::listenUnixSocket(root.endpoint("com.x").string(), SOCK_STREAM, 8, 0600));
  const auto endpoints = platform::serviceEndpoints().load();
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  std::vector<FileDescriptor> all;
  const rlimit few{100, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);
  while (all.empty() || all.back()) all.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  all.pop_back();
  // Runs out of descriptors at each step in turn.
  std::vector<platform::ServiceConnectResult> results;
  for (int left = 0; left < 8; ++left) {
    results.push_back(endpoints->connectToService("com.x"));
    if (results.back().outcome == Outcome::Connected) break;
    all.pop_back();
  }
  ::setrlimit(RLIMIT_NOFILE, &before);
  ASSERT_GE(results.size(), 3U);
  EXPECT_EQ(results.back().outcome, Outcome::Connected);
  ::close(results.back().descriptor);
  results.pop_back();
  for (const auto& each : results) {
    EXPECT_EQ(each.outcome, Outcome::TryAgain);
    EXPECT_NE(each.reason.find("Too many open files"), std::string::npos) << each.reason;
  }
}

}  // namespace
