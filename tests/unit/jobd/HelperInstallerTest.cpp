// Installing a helper: what is in place after it, after a refusal, and after a crash at any point.
#include "jobd/HelperInstaller.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

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

constexpr const char* label = "com.quillmar.echo";

class HelperInstallerTest : public testing::Test {
 protected:
  HelperInstallerTest()
      : root(temporary.path() / "root"),
        directories(RootDirectories::open(root)),
        oldImage(testsupport::makeImage(WLHID_MKIMAGE, {label, "1.0", "/bin/true", {}},
                                        temporary.path() / "old")),
        newImage(testsupport::makeImage(
            WLHID_MKIMAGE, {label, "2.0", "/bin/false", {label, "com.quillmar.echo.second"}},
            temporary.path() / "new")) {}

  platform::JobDescription install(const fs::path& image) {
    const FileDescriptor file(::open(image.c_str(), O_RDONLY | O_CLOEXEC));
    return HelperInstaller(directories, root).install(file.get(), label, nullptr);
  }

  /// Installs in a process that dies when `last` is done.
  void installAndDieAfter(const fs::path& image, InstallStep last) {
    const pid_t child = ::fork();
    if (child == 0) {
      HelperInstaller installer(directories, root);
      installer.setStepObserver([last](InstallStep step) {
        if (step == last) ::_exit(42);
      });
      const FileDescriptor file(::open(image.c_str(), O_RDONLY | O_CLOEXEC));
      installer.install(file.get(), label, nullptr);
      ::_exit(1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(WEXITSTATUS(status), 42);
  }

  std::string installedTool() const { return readFile(root.helperTool(label)); }
  std::string jobFile() const { return readFile(root.jobFile(label)); }
  std::vector<std::string> strays() const {
    std::vector<std::string> names;
    for (const auto& place : {"Library/LaunchDaemons", "Library/PrivilegedHelperTools"}) {
      for (const auto& entry : fs::directory_iterator(root.path() / place)) {
        const std::string name = entry.path().filename().string();
        if (name != label && name != std::string(label) + ".plist") names.push_back(name);
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
  EXPECT_EQ(job.arguments, std::vector<std::string>{root.helperTool(label).string()});
  EXPECT_THAT(job.services, testing::ElementsAre(label, "com.quillmar.echo.second"));
  EXPECT_EQ(installedTool(), readFile(newImage));
  struct stat status {};
  ::stat(root.helperTool(label).c_str(), &status);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
  const std::string text = jobFile();
  const auto read = platform::parseJobFile(
      {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, label, nullptr);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->arguments, job.arguments);
  EXPECT_EQ(read->services, job.services);
  EXPECT_THAT(strays(), testing::IsEmpty());
}

TEST_F(HelperInstallerTest, EverythingIsOnDiskBeforeItHasItsName) {
  install(oldImage);
  fileoperations::record();
  install(newImage);
  const std::string tool = label;
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
  EXPECT_TRUE(HelperInstaller(directories, root).remove(label));
  EXPECT_THAT(fileoperations::recorded(),
              testing::ElementsAre("sync LaunchDaemons", "sync PrivilegedHelperTools"));
}

TEST_F(HelperInstallerTest, TakesTheWholeFileWhateverTheDescriptorsOffset) {
  const FileDescriptor file(::open(newImage.c_str(), O_RDONLY | O_CLOEXEC));
  ::lseek(file.get(), 1000, SEEK_SET);
  HelperInstaller(directories, root).install(file.get(), label, nullptr);
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
    EXPECT_TRUE(!fs::exists(root.jobFile(label)) || installedTool() == readFile(newImage));
    HelperInstaller(directories, root).removeStagingFiles();
    HelperInstaller(directories, root).remove(label);
    EXPECT_THAT(strays(), testing::IsEmpty());
  }
}

TEST_F(HelperInstallerTest, ARefusalChangesNothing) {
  install(oldImage);
  const std::string oldJob = jobFile();
  testsupport::writeFile(temporary.path() / "text", "no image at all");
  EXPECT_THROW(install(temporary.path() / "text"), ServiceError);
  EXPECT_THROW(install(temporary.path()), ServiceError);
  const auto other = testsupport::makeImage(WLHID_MKIMAGE, {"com.other", "1", "/bin/true", {}},
                                            temporary.path() / "other");
  EXPECT_THROW(install(other), ServiceError);
  const FileDescriptor file(::open(newImage.c_str(), O_RDONLY | O_CLOEXEC));
  const auto refuse = [](const platform::JobDescription&) {
    throw ServiceError(platform::ServiceErrorCode::Busy, "no");
  };
  EXPECT_THROW(HelperInstaller(directories, root).install(file.get(), label, refuse), ServiceError);
  EXPECT_EQ(installedTool(), readFile(oldImage));
  EXPECT_EQ(jobFile(), oldJob);
  EXPECT_THAT(strays(), testing::IsEmpty());
}

TEST_F(HelperInstallerTest, PlantedLinksAreReplacedNotFollowed) {
  testsupport::writeFile(temporary.path() / "victim", "untouched");
  const auto tools = root.path() / "Library/PrivilegedHelperTools";
  const auto jobs = root.path() / "Library/LaunchDaemons";
  for (const auto& place :
       {tools / label, tools / (std::string(".staging.") + label), root.jobFile(label),
        jobs / (std::string(".staging.") + label + ".plist")}) {
    fs::create_symlink(temporary.path() / "victim", place);
  }
  install(newImage);
  EXPECT_EQ(readFile(temporary.path() / "victim"), "untouched");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(root.helperTool(label))));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(root.jobFile(label))));
  EXPECT_EQ(installedTool(), readFile(newImage));
}

TEST_F(HelperInstallerTest, RemovesBothAndSaysWhetherThereWasAnything) {
  HelperInstaller installer(directories, root);
  EXPECT_FALSE(installer.remove(label));
  install(newImage);
  EXPECT_TRUE(installer.remove(label));
  EXPECT_FALSE(fs::exists(root.helperTool(label)));
  EXPECT_FALSE(fs::exists(root.jobFile(label)));
  EXPECT_FALSE(installer.remove(label));
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
  // "/proc/1" belongs to the superuser, "/proc/self" to whoever runs this; as the superuser a file
  // may be given away.
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

}  // namespace
