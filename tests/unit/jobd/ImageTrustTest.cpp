// SPDX-License-Identifier: Apache-2.0

// The administrator's keys decide whose helpers may be installed.
#include "jobd/ImageTrust.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/services/ServiceError.h"
#include "platform/signing/ImageSignature.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using platform::signing::KeyPair;
using platform::signing::newKeyPair;
using testing::HasSubstr;
namespace fs = std::filesystem;

class ImageTrust : public testing::Test {
 protected:
  ImageTrust() {
    ::chmod(root_.path().c_str(), 0755);
    platform::SystemRoot::setSystemForTests(root_.path());
  }
  ~ImageTrust() override { platform::SystemRoot::setSystemForTests({}); }

  void trust(const KeyPair& pair, const std::string& name) const {
    testsupport::writeFile(keys_ / name, platform::signing::textOf(pair.publicKey));
  }
  static std::vector<std::uint8_t> imageOf(const KeyPair& pair) {
    std::vector<std::uint8_t> image(100, 7);
    const auto trailer = platform::signing::trailerFor(image, pair.secretKey);
    image.insert(image.end(), trailer.begin(), trailer.end());
    return image;
  }
  /// Why the image is not trusted; empty if it is.
  [[nodiscard]] std::string whyNot(const std::vector<std::uint8_t>& image) const try {
    jobd::trustByKeys(root_)(image);
    return {};
  } catch (const platform::ServiceError& error) {
    return error.what();
  }

  testsupport::TemporaryDirectory temporary_;
  platform::SystemRoot root_{temporary_.path()};
  fs::path keys_ = temporary_.path() / "etc/wlhid/trusted.d";
};

TEST_F(ImageTrust, WithoutAKeyEveryImageIsTrusted) {
  EXPECT_EQ(whyNot({1, 2, 3}), "");
  fs::create_directories(keys_);
  EXPECT_EQ(whyNot({1, 2, 3}), "");
  testsupport::writeFile(keys_ / "README", "no key");
  EXPECT_EQ(whyNot({1, 2, 3}), "");
}

TEST_F(ImageTrust, WithOneOnlyWhatIsSignedWithIt) {
  const KeyPair one = newKeyPair();
  const KeyPair other = newKeyPair();
  trust(one, "one.pub");
  EXPECT_EQ(whyNot({1, 2, 3}), "the helper is not signed with a key in /etc/wlhid/trusted.d");
  EXPECT_EQ(whyNot(imageOf(one)), "");
  EXPECT_NE(whyNot(imageOf(other)), "");
  trust(other, "other.pub");
  EXPECT_EQ(whyNot(imageOf(one)), "");
  EXPECT_EQ(whyNot(imageOf(other)), "");
}

TEST_F(ImageTrust, AKeyThatCannotBeReadIsNotNone) {
  const KeyPair pair = newKeyPair();
  trust(pair, "good.pub");
  testsupport::writeFile(keys_ / "broken.pub", "garbage");
  EXPECT_THAT(whyNot(imageOf(pair)), HasSubstr("/broken.pub is not a public key"));
  fs::remove(keys_ / "broken.pub");
  fs::create_symlink(keys_ / "good.pub", keys_ / "link.pub");
  EXPECT_THAT(whyNot(imageOf(pair)), HasSubstr("cannot open link.pub"));
}

TEST_F(ImageTrust, KeysOfAnotherAreNotRead) {
  const KeyPair pair = newKeyPair();
  trust(pair, "one.pub");
  ASSERT_EQ(::chmod(keys_.c_str(), 0777), 0);
  EXPECT_THAT(whyNot(imageOf(pair)), HasSubstr("can be written by others"));
}

}  // namespace
