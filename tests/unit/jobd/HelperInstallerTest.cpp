// SPDX-License-Identifier: Apache-2.0

// Installing a helper: what is in place afterwards, after a refusal, and after a crash at any
// point.
#include "jobd/HelperInstaller.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "tests/support/HelperImages.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/jobd/FileOperations.h"

namespace {

using jobd::HelperInstaller;
using jobd::InstallStep;
using jobd::RootDirectories;
using platform::FileDescriptor;
using platform::ServiceError;
using testsupport::readFile;
namespace fs = std::filesystem;

constexpr const char* kLabel = "com.quillmar.echo";

/// Makes the root the system's own before it is opened.
RootDirectories openAsSystem(const platform::SystemRoot& root) {
  fs::create_directories(root.path());
  ::chmod(root.path().c_str(), 0755);
  platform::SystemRoot::setSystemForTests(root.path());
  return RootDirectories::openSystem(root);
}

class HelperInstallerTest : public testing::Test {
 protected:
  explicit HelperInstallerTest(
      RootDirectories (*open)(const platform::SystemRoot&) = RootDirectories::open)
      : root(temporary.path() / "root"),
        directories(open(root)),
        oldImage(testsupport::makeImage(WLHID_MKIMAGE, {kLabel, "1.0", WLHID_HELPER_PROGRAM, {}},
                                        temporary.path() / "old")),
        newImage(testsupport::makeImage(
            WLHID_MKIMAGE,
            {kLabel, "2.0", WLHID_HELPER_PROGRAM, {kLabel, "com.quillmar.echo.second"}},
            temporary.path() / "new")) {}

  platform::JobDescription install(const fs::path& image) {
    const FileDescriptor file(::open(image.c_str(), O_RDONLY | O_CLOEXEC));
    return HelperInstaller(directories, root).install(file.get(), kLabel, nullptr);
  }

  /// Installs in a process that dies after step `last`.
  void installAndDieAfter(const fs::path& image, InstallStep last) {
    const pid_t child = ::fork();
    if (child == 0) {
      HelperInstaller installer(directories, root);
      installer.setStepObserver([last](InstallStep step) {
        if (step == last) ::_exit(42);
      });
      const FileDescriptor file(::open(image.c_str(), O_RDONLY | O_CLOEXEC));
      installer.install(file.get(), kLabel, nullptr);
      ::_exit(1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(WEXITSTATUS(status), 42);
  }

  /// Installs in a process that dies before or after its `count`th operation on a file; false if
  /// there are fewer.
  bool installAndDieAt(const fs::path& image, int count, bool isAfter) {
    const pid_t child = ::fork();
    if (child == 0) {
      fileoperations::dieAt(count, isAfter);
      install(image);
      ::_exit(0);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFSIGNALED(status);
  }
  /// What a new daemon finds after a crash at each operation of an update, and of a first
  /// installation, must be whole.
  void crashEverywhere() {
    for (const bool isUpdate : {true, false}) {
      for (const bool isAfter : {false, true}) {
        int count = 1;
        for (bool died = true; died; ++count) {
          HelperInstaller(directories, root).remove(kLabel);
          if (isUpdate) install(oldImage);
          const std::string oldJob = isUpdate ? jobFile() : "";
          died = installAndDieAt(newImage, count, isAfter);
          HelperInstaller(directories, root).removeStagingFiles();
          expectWhole(isUpdate, oldJob);
        }
        EXPECT_GT(count, 10) << "hardly anything was done";
      }
    }
  }
  void expectWhole(bool isUpdate, const std::string& oldJob) {
    const bool hasJob = fs::exists(root.jobFile(kLabel));
    const std::string tool = installedTool();
    EXPECT_TRUE(hasJob || !isUpdate);
    if (hasJob) {
      EXPECT_TRUE(tool == readFile(newImage) || (isUpdate && tool == readFile(oldImage)));
      EXPECT_TRUE(jobFile() == oldJob || tool == readFile(newImage)) << "a new job, an old tool";
    }
    EXPECT_THAT(strays(), testing::IsEmpty());
  }

  std::string installedTool() const { return readFile(root.helperTool(kLabel)); }
  std::string jobFile() const { return readFile(root.jobFile(kLabel)); }
  std::vector<std::string> strays() const {
    std::vector<std::string> names;
    std::vector<fs::path> places{root.jobFile(kLabel).parent_path(),
                                 root.helperTool(kLabel).parent_path()};
    if (directories.staging) places.push_back(root.path() / root.places().staging);
    for (const auto& place : places) {
      for (const auto& entry : fs::directory_iterator(place)) {
        const std::string name = entry.path().filename().string();
        if (name != kLabel && name != std::string(kLabel) + ".plist") names.push_back(name);
      }
    }
    return names;
  }

  testsupport::TemporaryDirectory temporary;
  platform::SystemRoot root;
  RootDirectories directories;
  fs::path oldImage;
  fs::path newImage;
};

TEST_F(HelperInstallerTest, PutsExecutableAndJobFileInPlace) {
  const auto job = install(newImage);
  EXPECT_EQ(job.arguments, std::vector<std::string>{root.helperTool(kLabel).string()});
  EXPECT_THAT(job.services, testing::ElementsAre(kLabel, "com.quillmar.echo.second"));
  EXPECT_EQ(installedTool(), readFile(newImage));
  struct stat status {};
  ::stat(root.helperTool(kLabel).c_str(), &status);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
  const std::string text = jobFile();
  const auto read = platform::parseJobFile(
      {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, kLabel, nullptr);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->arguments, job.arguments);
  EXPECT_EQ(read->services, job.services);
  EXPECT_THAT(strays(), testing::IsEmpty());
}

TEST_F(HelperInstallerTest, EverythingIsOnDiskBeforeItHasItsName) {
  install(oldImage);
  fileoperations::record();
  install(newImage);
  const std::string tool = kLabel;
  const std::string job = tool + ".plist";
  EXPECT_THAT(fileoperations::recorded(),
              testing::ElementsAre(
                  "write .staging." + tool, "mode .staging." + tool, "sync .staging." + tool,
                  "write .staging." + job, "mode .staging." + job, "sync .staging." + job,
                  "rename .staging." + tool + " " + tool, "sync PrivilegedHelperTools",
                  "rename .staging." + job + " " + job, "sync LaunchDaemons"));
}

TEST_F(HelperInstallerTest, ARemovalIsOnDiskJobFileFirst) {
  install(newImage);
  fileoperations::record();
  EXPECT_TRUE(HelperInstaller(directories, root).remove(kLabel));
  EXPECT_THAT(fileoperations::recorded(),
              testing::ElementsAre("sync LaunchDaemons", "sync PrivilegedHelperTools"));
}

TEST_F(HelperInstallerTest, TakesTheWholeFileWhateverTheDescriptorsOffset) {
  const FileDescriptor file(::open(newImage.c_str(), O_RDONLY | O_CLOEXEC));
  ::lseek(file.get(), 1000, SEEK_SET);
  HelperInstaller(directories, root).install(file.get(), kLabel, nullptr);
  EXPECT_EQ(installedTool(), readFile(newImage));
}

TEST_F(HelperInstallerTest, ACrashAtAnyPointLeavesTheOldOneOrTheNewOneWhole) {
  install(oldImage);
  const std::string oldJob = jobFile();
  for (const auto step : {InstallStep::ExecutableStaged, InstallStep::JobFileStaged}) {
    installAndDieAfter(newImage, step);
    EXPECT_EQ(installedTool(), readFile(oldImage));
    EXPECT_EQ(jobFile(), oldJob);
    HelperInstaller(directories, root).removeStagingFiles();
    EXPECT_THAT(strays(), testing::IsEmpty());
  }
  installAndDieAfter(newImage, InstallStep::ExecutableInPlace);
  EXPECT_EQ(installedTool(), readFile(newImage));
  EXPECT_EQ(jobFile(), oldJob);
  for (const auto step : {InstallStep::JobFileInPlace, InstallStep::Done}) {
    installAndDieAfter(newImage, step);
    EXPECT_EQ(installedTool(), readFile(newImage));
    EXPECT_NE(jobFile(), oldJob);
  }
}

TEST_F(HelperInstallerTest, ACrashOfAFirstInstallationLeavesNoJobWithoutItsExecutable) {
  for (const auto step :
       {InstallStep::ExecutableStaged, InstallStep::JobFileStaged, InstallStep::ExecutableInPlace,
        InstallStep::JobFileInPlace, InstallStep::Done}) {
    installAndDieAfter(newImage, step);
    EXPECT_TRUE(!fs::exists(root.jobFile(kLabel)) || installedTool() == readFile(newImage));
    HelperInstaller(directories, root).removeStagingFiles();
    HelperInstaller(directories, root).remove(kLabel);
    EXPECT_THAT(strays(), testing::IsEmpty());
  }
}

TEST_F(HelperInstallerTest, AKillAtAnyOperationLeavesTheOldOneOrTheNewOneWhole) {
  crashEverywhere();
}

class SystemInstaller : public HelperInstallerTest {
 protected:
  SystemInstaller() : HelperInstallerTest(openAsSystem) {}
  ~SystemInstaller() override { platform::SystemRoot::setSystemForTests({}); }
};

TEST_F(SystemInstaller, AKillAtAnyOperationLeavesTheOldOneOrTheNewOneWhole) {
  crashEverywhere();
}

TEST_F(SystemInstaller, PutsThemIntoTheApplicationsLayer) {
  const auto job = install(newImage);
  EXPECT_EQ(job.arguments.front(), root.path() / "var/lib/wlhid/helpers" / kLabel);
  EXPECT_EQ(readFile(root.path() / "var/lib/wlhid/helpers" / kLabel), readFile(newImage));
  EXPECT_TRUE(fs::exists(root.path() / "var/lib/wlhid/jobs" / (std::string(kLabel) + ".plist")));
  EXPECT_THAT(strays(), testing::IsEmpty());
}

TEST_F(SystemInstaller, StagesWhereNobodyElseGets) {
  const fs::path staging = root.path() / "var/lib/wlhid/staging";
  EXPECT_EQ(fs::status(staging).permissions(), fs::perms::owner_all);
  const FileDescriptor file(::open(newImage.c_str(), O_RDONLY | O_CLOEXEC));
  const auto staged = jobd::stageHelper(jobd::helperStaging(directories), file.get(), kLabel);
  EXPECT_EQ(staged.version, "2.0");
  EXPECT_TRUE(fs::exists(staging / (std::string(".staging.") + kLabel)));
  HelperInstaller(directories, root).removeStagingFiles();
  EXPECT_THAT(strays(), testing::IsEmpty());
}

TEST_F(SystemInstaller, ACheckOfTheCopyMayRefuseIt) {
  const FileDescriptor file(::open(newImage.c_str(), O_RDONLY | O_CLOEXEC));
  std::size_t checked = 0;
  const auto refuse = [&](std::span<const std::uint8_t> image) {
    checked = image.size();
    throw ServiceError(platform::ServiceErrorCode::InvalidImage, "not trusted");
  };
  EXPECT_THROW(
      (void)jobd::stageHelper(jobd::helperStaging(directories), file.get(), kLabel, refuse),
      ServiceError);
  EXPECT_EQ(checked, fs::file_size(newImage));
  EXPECT_THAT(strays(), testing::IsEmpty());
}

TEST_F(HelperInstallerTest, ARefusalChangesNothing) {
  install(oldImage);
  const std::string oldJob = jobFile();
  testsupport::writeFile(temporary.path() / "text", "no image at all");
  EXPECT_THROW(install(temporary.path() / "text"), ServiceError);
  EXPECT_THROW(install(temporary.path()), ServiceError);
  const auto other = testsupport::makeImage(
      WLHID_MKIMAGE, {"com.other", "1", WLHID_HELPER_PROGRAM, {}}, temporary.path() / "other");
  EXPECT_THROW(install(other), ServiceError);
  const FileDescriptor file(::open(newImage.c_str(), O_RDONLY | O_CLOEXEC));
  const auto refuse = [](const platform::JobDescription&) {
    throw ServiceError(platform::ServiceErrorCode::Busy, "no");
  };
  EXPECT_THROW(HelperInstaller(directories, root).install(file.get(), kLabel, refuse),
               ServiceError);
  EXPECT_EQ(installedTool(), readFile(oldImage));
  EXPECT_EQ(jobFile(), oldJob);
  EXPECT_THAT(strays(), testing::IsEmpty());
}

TEST_F(HelperInstallerTest, PlantedLinksAreReplacedNotFollowed) {
  testsupport::writeFile(temporary.path() / "victim", "untouched");
  const auto tools = root.path() / "Library/PrivilegedHelperTools";
  const auto jobs = root.path() / "Library/LaunchDaemons";
  for (const auto& place :
       {tools / kLabel, tools / (std::string(".staging.") + kLabel), root.jobFile(kLabel),
        jobs / (std::string(".staging.") + kLabel + ".plist")}) {
    fs::create_symlink(temporary.path() / "victim", place);
  }
  install(newImage);
  EXPECT_EQ(readFile(temporary.path() / "victim"), "untouched");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(root.helperTool(kLabel))));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(root.jobFile(kLabel))));
  EXPECT_EQ(installedTool(), readFile(newImage));
}

TEST_F(HelperInstallerTest, RemovesBothAndSaysWhetherThereWasAnything) {
  HelperInstaller installer(directories, root);
  EXPECT_FALSE(installer.remove(kLabel));
  install(newImage);
  EXPECT_TRUE(installer.remove(kLabel));
  EXPECT_FALSE(fs::exists(root.helperTool(kLabel)));
  EXPECT_FALSE(fs::exists(root.jobFile(kLabel)));
  EXPECT_FALSE(installer.remove(kLabel));
}

TEST_F(HelperInstallerTest, AFullDiskLeavesTheOldOne) {
  install(oldImage);
  const pid_t child = ::fork();
  if (child == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4096, 4096};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    try {
      install(newImage);
    } catch (const ServiceError&) {
      ::_exit(42);
    }
    ::_exit(1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 42);
  EXPECT_EQ(installedTool(), readFile(oldImage));
  EXPECT_THAT(strays(), testing::IsEmpty());
}

TEST(RootDirectories, LinksAndForeignHandsAreRefused) {
  const testsupport::TemporaryDirectory temporary;
  const platform::SystemRoot root(temporary.path() / "root");
  fs::create_directories(root.path());
  fs::create_directories(temporary.path() / "elsewhere");
  fs::create_symlink(temporary.path() / "elsewhere", root.path() / "Library");
  EXPECT_THROW((void)RootDirectories::open(root), ServiceError);
  EXPECT_TRUE(fs::is_empty(temporary.path() / "elsewhere"));
  fs::remove(root.path() / "Library");
  (void)RootDirectories::open(root);
  for (const auto* place : {"", "Library", "Library/PrivilegedHelperTools", "var/run"}) {
    ASSERT_EQ(::chmod((root.path() / place).c_str(), 0775), 0);
    EXPECT_THROW((void)RootDirectories::open(root), ServiceError) << place;
    ASSERT_EQ(::chmod((root.path() / place).c_str(), 0755), 0);
  }
  (void)RootDirectories::open(root);
}

TEST(RootDirectories, SystemRootIsNotServed) {
  EXPECT_THROW((void)RootDirectories::open(platform::SystemRoot("/")), ServiceError);
}

TEST(RootDirectories, ARootOfAnotherUserIsNotServed) {
  // "/proc/1" belongs to the superuser, "/proc/self" to the user running this; the superuser can
  // give a file away.
  const testsupport::TemporaryDirectory temporary;
  const fs::path foreign = ::geteuid() == 0 ? temporary.path() / "given-away" : fs::path("/proc/1");
  if (::geteuid() == 0) {
    fs::create_directories(foreign);
    ASSERT_EQ(::chown(foreign.c_str(), 12345, 12345), 0);
  }
  try {
    (void)RootDirectories::open(platform::SystemRoot(foreign));
    ADD_FAILURE() << "served";
  } catch (const ServiceError& error) {
    EXPECT_EQ(error.code(), platform::ServiceErrorCode::NotPermitted);
  }
}

/// The error of an installation, or "installed".
template <class Act>
std::string outcome(const Act& act) try {
  act();
  return "installed";
} catch (const ServiceError& error) {
  return error.what();
}

TEST_F(HelperInstallerTest, TheJobFileIsForAllToReadAndItsOwnerToWrite) {
  const mode_t mask = ::umask(077);
  install(newImage);
  ::umask(mask);
  struct stat status {};
  ASSERT_EQ(::stat(root.jobFile(kLabel).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
  ASSERT_EQ(::stat(root.helperTool(kLabel).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

TEST_F(HelperInstallerTest, WhatIsInTheWayIsNamedAndNothingIsLeft) {
  fs::create_directories(root.helperTool(kLabel) / "x");
  EXPECT_EQ(outcome([&] { install(newImage); }),
            "cannot put com.quillmar.echo in place: Is a directory");
  EXPECT_THAT(strays(), testing::IsEmpty());
  fs::remove_all(root.helperTool(kLabel));
  fs::create_directories(root.jobFile(kLabel) / "x");
  EXPECT_EQ(outcome([&] { install(newImage); }),
            "cannot put com.quillmar.echo.plist in place: Is a directory");
  EXPECT_THAT(strays(), testing::IsEmpty());
  EXPECT_EQ(outcome([&] { HelperInstaller(directories, root).remove(kLabel); }),
            "cannot remove com.quillmar.echo.plist: Is a directory");
}

TEST_F(HelperInstallerTest, AStagingFileThatCannotBeMadeIsNamed) {
  const auto stray =
      root.helperTool(kLabel).parent_path() / (std::string(".staging.") + kLabel) / "x";
  fs::create_directories(stray);
  EXPECT_EQ(outcome([&] { install(newImage); }),
            "cannot make .staging.com.quillmar.echo: File exists");
}

TEST_F(HelperInstallerTest, OnlyARegularFileIsAHelper) {
  EXPECT_EQ(outcome([&] { install(temporary.path()); }), "the helper is not a regular file");
  EXPECT_EQ(outcome([&] { HelperInstaller(directories, root).install(-1, kLabel, nullptr); }),
            "cannot examine the helper: Bad file descriptor");
  const FileDescriptor written(::open(newImage.c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(
      outcome([&] { HelperInstaller(directories, root).install(written.get(), kLabel, nullptr); }),
      "cannot read the helper: Bad file descriptor");
  EXPECT_THAT(strays(), testing::IsEmpty());
}

TEST_F(HelperInstallerTest, ACopyThatMovesInPiecesIsWhole) {
  fileoperations::limitWrites({1, -EINTR, 5, 4096});
  install(newImage);
  EXPECT_EQ(installedTool(), readFile(newImage));
  fileoperations::limitWrites({10, -ENOSPC});
  EXPECT_EQ(outcome([&] { install(oldImage); }),
            "cannot write .staging.com.quillmar.echo: No space left on device");
  EXPECT_EQ(installedTool(), readFile(newImage));
  EXPECT_THAT(strays(), testing::IsEmpty());
}

TEST_F(HelperInstallerTest, AHelperLargerThanAPieceIsCopiedWhole) {
  fs::resize_file(newImage, std::size_t{600} * 1024 + 1);
  install(newImage);
  EXPECT_EQ(installedTool(), readFile(newImage));
}

TEST_F(HelperInstallerTest, AHelperOfTheLargestSizeIsTakenAndNoLarger) {
  fs::resize_file(newImage, platform::kMaximumHelperBytes);
  EXPECT_EQ(outcome([&] { install(newImage); }), "installed");
  fs::resize_file(newImage, platform::kMaximumHelperBytes + 1);
  EXPECT_EQ(outcome([&] { install(newImage); }), "the helper is larger than 67108864 bytes");
}

TEST_F(HelperInstallerTest, AStagedHelperCanBeThrownAway) {
  const FileDescriptor file(::open(newImage.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_THAT(jobd::stageHelper(directories.tools.get(), file.get(), kLabel).services,
              testing::ElementsAre(kLabel, "com.quillmar.echo.second"));
  EXPECT_THAT(strays(), testing::ElementsAre(std::string(".staging.") + kLabel));
  jobd::discardStagedHelper(directories.tools.get(), kLabel);
  EXPECT_THAT(strays(), testing::IsEmpty());
}

TEST_F(HelperInstallerTest, OnlyStagingFilesAreClearedAway) {
  install(newImage);
  for (const auto& place : {root.helperTool(kLabel), root.jobFile(kLabel)}) {
    testsupport::writeFile(place.parent_path() / ".staging.x", "");
    testsupport::writeFile(place.parent_path() / "staging.x", "");
  }
  HelperInstaller(directories, root).removeStagingFiles();
  EXPECT_THAT(strays(), testing::ElementsAre("staging.x", "staging.x"));
  EXPECT_EQ(installedTool(), readFile(newImage));
}

TEST_F(HelperInstallerTest, RemovesWhatIsThereOfTheTwo) {
  install(newImage);
  fs::remove(root.jobFile(kLabel));
  EXPECT_TRUE(HelperInstaller(directories, root).remove(kLabel));
  install(newImage);
  fs::remove(root.helperTool(kLabel));
  EXPECT_TRUE(HelperInstaller(directories, root).remove(kLabel));
  EXPECT_FALSE(HelperInstaller(directories, root).remove(kLabel));
}

TEST_F(HelperInstallerTest, LeavesNoDescriptorOpen) {
  const auto open = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto before = open();
  install(newImage);
  EXPECT_EQ(open(), before);
}

TEST_F(HelperInstallerTest, StepsAreReportedInTheirOrder) {
  std::vector<InstallStep> steps;
  HelperInstaller installer(directories, root);
  installer.setStepObserver([&](InstallStep step) { steps.push_back(step); });
  const FileDescriptor file(::open(newImage.c_str(), O_RDONLY | O_CLOEXEC));
  installer.install(file.get(), kLabel, nullptr);
  EXPECT_THAT(steps, testing::ElementsAre(InstallStep::ExecutableStaged, InstallStep::JobFileStaged,
                                          InstallStep::ExecutableInPlace,
                                          InstallStep::JobFileInPlace, InstallStep::Done));
}

TEST_F(HelperInstallerTest, TheApprovedJobIsTheOneThatIsInstalled) {
  std::string seen;
  const FileDescriptor file(::open(newImage.c_str(), O_RDONLY | O_CLOEXEC));
  const auto job =
      HelperInstaller(directories, root)
          .install(file.get(), kLabel, [&](const platform::JobDescription& asked) {
            seen = asked.label + " " + asked.arguments.front() + " " + asked.services.back();
          });
  EXPECT_EQ(job.label, kLabel);
  EXPECT_EQ(seen, std::string(kLabel) + " " + root.helperTool(kLabel).string() +
                      " com.quillmar.echo.second");
}

TEST_F(HelperInstallerTest, LabelsAreThoseOfJobFilesWithValidNames) {
  const auto jobs = root.jobFile(kLabel).parent_path();
  for (const char* name : {"com.a.plist", "com.b.txt", ".plist", "bad name.plist", "com.c.plist.x",
                           ".staging.com.d.plist", "x.plist"})
    testsupport::writeFile(jobs / name, "");
  EXPECT_THAT(jobd::labelsOfJobFiles(directories.jobs.get()), testing::ElementsAre("com.a", "x"));
}

TEST(RootDirectories, AreMadeForTheirOwnerToWrite) {
  const testsupport::TemporaryDirectory temporary;
  const platform::SystemRoot root(temporary.path() / "root");
  const mode_t mask = ::umask(0);
  const auto directories = RootDirectories::open(root);
  ::umask(mask);
  const auto pathOf = [](const FileDescriptor& directory) {
    return fs::read_symlink("/proc/self/fd/" + std::to_string(directory.get()));
  };
  EXPECT_EQ(pathOf(directories.root), root.path());
  EXPECT_EQ(pathOf(directories.jobs), root.path() / "Library/LaunchDaemons");
  EXPECT_EQ(pathOf(directories.tools), root.path() / "Library/PrivilegedHelperTools");
  EXPECT_EQ(pathOf(directories.run), root.path() / "var/run");
  EXPECT_EQ(pathOf(directories.log), root.path() / "var/log");
  for (const auto& entry : fs::recursive_directory_iterator(root.path())) {
    struct stat status {};
    ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0755U) << entry.path();
  }
}

TEST(RootDirectories, WhichOfThemOthersCanWriteIsSaid) {
  const testsupport::TemporaryDirectory temporary;
  const platform::SystemRoot root(temporary.path() / "root");
  (void)RootDirectories::open(root);
  for (const std::string place : {"Library", "Library/LaunchDaemons",
                                  "Library/PrivilegedHelperTools", "var", "var/run", "var/log"}) {
    ASSERT_EQ(::chmod((root.path() / place).c_str(), 0757), 0);
    EXPECT_THAT(outcome([&] { (void)RootDirectories::open(root); }),
                testing::StartsWith(place + " can be written by others (mode 0757)"));
    ASSERT_EQ(::chmod((root.path() / place).c_str(), 0755), 0);
  }
  EXPECT_EQ(outcome([] { (void)RootDirectories::open(platform::SystemRoot("/")); }),
            "the system's own root has a daemon that systemd starts (wlhid-jobd.socket)");
}

}  // namespace
