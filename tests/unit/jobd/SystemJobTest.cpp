// SPDX-License-Identifier: Apache-2.0

// What is run as the router on the system's own root.
#include "jobd/SystemJob.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "jobd/HelperImage.h"
#include "jobd/MappedFile.h"
#include "platform/services/JobFile.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceError.h"
#include "tests/support/HelperImages.h"
#include "tests/support/OtherUser.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using platform::ServiceError;
using testing::HasSubstr;
namespace fs = std::filesystem;

const std::string kLabel(platform::kSystemJobLabel);

class SystemJob : public testing::Test {
 protected:
  SystemJob() {
    ::chmod(root_.path().c_str(), 0755);
    platform::SystemRoot::setSystemForTests(root_.path());
  }
  ~SystemJob() override { platform::SystemRoot::setSystemForTests({}); }

  /// A layer's job with an image of that program.
  void put(const fs::path& layer, const std::string& program, const std::string& version = "1.0",
           const std::vector<std::string>& services = {}) {
    const fs::path helper = layer / "helpers" / kLabel;
    fs::create_directories(helper.parent_path());
    fs::remove(helper);
    testsupport::makeImage(WLHID_MKIMAGE, {kLabel, version, program, services}, helper);
    ::chmod(helper.c_str(), 0755);
    const auto bytes = platform::encodeJobFile({kLabel, {helper.string()}, {kLabel}});
    testsupport::writeFile(layer / "jobs" / (kLabel + ".plist"),
                           std::string(bytes.begin(), bytes.end()));
  }
  [[nodiscard]] std::string load(const std::string& label = kLabel) const try {
    const auto loaded = jobd::loadSystemProgram(root_, label);
    const auto bytes =
        platform::readDescriptor(loaded.program.get(), "program", platform::kMaximumHelperBytes);
    for (const char* program : {"/bin/true", "/bin/false"}) {
      if (testsupport::readFile(program) == std::string(bytes.begin(), bytes.end()))
        return loaded.path + ": " + program;
    }
    return loaded.path + ": another program";
  } catch (const ServiceError& error) {
    return error.what();
  }

  testsupport::TemporaryDirectory temporary_;
  platform::SystemRoot root_{temporary_.path()};
  fs::path packaged_ = temporary_.path() / "usr/lib/wlhid";
  fs::path blessed_ = temporary_.path() / "var/lib/wlhid";
};

TEST_F(SystemJob, RunsWhatAnApplicationInstalledElseThePackages) {
  EXPECT_EQ(load(), "there is no job " + kLabel);
  put(packaged_, "/bin/true");
  EXPECT_EQ(load(), (packaged_ / "helpers" / kLabel).string() + ": /bin/true");
  put(blessed_, "/bin/false");
  EXPECT_EQ(load(), (blessed_ / "helpers" / kLabel).string() + ": /bin/false");
}

TEST_F(SystemJob, RunsNothingInPlaceOfADamagedOne) {
  put(packaged_, "/bin/true");
  put(blessed_, "/bin/false");
  fs::remove(blessed_ / "helpers" / kLabel);
  EXPECT_THAT(load(), HasSubstr("No such file"));
  testsupport::writeFile(blessed_ / "helpers" / kLabel, "garbage");
  EXPECT_THAT(load(), HasSubstr("the helper has no section"));
  testsupport::writeFile(blessed_ / "jobs" / (kLabel + ".plist"), "garbage");
  EXPECT_THAT(load(), HasSubstr("the job file of " + kLabel + " cannot be used"));
}

TEST_F(SystemJob, RunsTheRouterWithAllOfItsServices) {
  const platform::FileDescriptor file(::open(WLHID_ROUTER_IMAGE, O_RDONLY | O_CLOEXEC));
  const jobd::MappedFile router(file.get(), WLHID_ROUTER_IMAGE);
  const auto services = jobd::parseHelperImage(router.bytes(), kLabel).services;
  EXPECT_GE(services.size(), 3U);
  put(packaged_, "/bin/true", "1.0", services);
  EXPECT_EQ(load(), (packaged_ / "helpers" / kLabel).string() + ": /bin/true");
}

TEST_F(SystemJob, RunsNoOtherLabelAndNoOtherService) {
  put(packaged_, "/bin/true", "1.0", {kLabel, kLabel + ".more"});
  EXPECT_THAT(load(), HasSubstr("and no other"));
  EXPECT_THAT(load("com.quillmar.echo"), HasSubstr("only " + kLabel + " can be installed"));
}

TEST_F(SystemJob, RunsNothingThatOthersMayHaveWritten) {
  put(packaged_, "/bin/true");
  const fs::path helper = packaged_ / "helpers" / kLabel;
  ASSERT_EQ(::chmod(helper.c_str(), 0775), 0);
  EXPECT_THAT(load(), HasSubstr("is not the superuser's alone"));
  ASSERT_EQ(::chmod(helper.c_str(), 0755), 0);
  ASSERT_EQ(::chmod(helper.parent_path().c_str(), 0777), 0);
  EXPECT_THAT(load(), HasSubstr("/usr/lib/wlhid/helpers can be written by others"));
  ASSERT_EQ(::chmod(helper.parent_path().c_str(), 0755), 0);
  fs::rename(helper, temporary_.path() / "elsewhere");
  fs::create_symlink(temporary_.path() / "elsewhere", helper);
  EXPECT_THAT(load(), HasSubstr("which is not the helper that is run for it"));
}

TEST_F(SystemJob, RunsNothingOfAnotherUsers) {
  if (!testsupport::isSuperuser()) GTEST_SKIP() << "needs the superuser";
  put(packaged_, "/bin/true");
  const fs::path helper = packaged_ / "helpers" / kLabel;
  ASSERT_EQ(::chown(helper.c_str(), testsupport::kOtherUser, 0), 0);
  EXPECT_THAT(load(), HasSubstr("is not the superuser's alone"));
}

TEST_F(SystemJob, TheNewestVersionOfAllLayersCounts) {
  EXPECT_EQ(jobd::newestVersion(root_, kLabel), "");
  put(packaged_, "/bin/true", "1.9");
  EXPECT_EQ(jobd::newestVersion(root_, kLabel), "1.9");
  put(blessed_, "/bin/true", "1.10");
  EXPECT_EQ(jobd::newestVersion(root_, kLabel), "1.10");
  put(packaged_, "/bin/true", "2.0");
  EXPECT_EQ(jobd::newestVersion(root_, kLabel), "2.0");
  testsupport::writeFile(packaged_ / "helpers" / kLabel, "garbage");
  EXPECT_EQ(jobd::newestVersion(root_, kLabel), "1.10");
}

}  // namespace
