// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "platform/scripted/HelperImage.h"
#include "platform/signing/ImageSignature.h"
#include "tests/unit/tool/VerbTest.h"

namespace tool {
namespace {

using testsupport::readFile;
using testsupport::writeFile;
namespace signing = platform::signing;

class SignTest : public VerbTest {
 protected:
  [[nodiscard]] std::string at(const std::string& name) const { return directory_.path() / name; }
  static Outcome sign(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "sign");
    return run(addSignVerb, arguments);
  }
  void makeImage() const {
    const auto image = platform::helperImageWithInfoPlist(platform::infoPlistWithVersion("1.0"));
    writeFile(at("image"), {reinterpret_cast<const char*>(image.data()), image.size()});
  }
  [[nodiscard]] bool isSigned(const std::string& image, const std::string& key) const {
    const std::string bytes = readFile(at(image));
    return signing::isSignedWith(
        {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()},
        signing::publicKeyIn(readFile(at(key))).value());
  }
  testsupport::TemporaryDirectory directory_;
};

TEST_F(SignTest, SignsWithTheKeysThatItMakes) {
  makeImage();
  ASSERT_EQ(sign({"--new-key", at("a")}).status, 0);
  ASSERT_EQ(sign({"--new-key", at("b")}).status, 0);
  struct stat status {};
  ASSERT_EQ(::stat(at("a.key").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  const auto done = sign({at("image"), "--key", at("a.key"), "-o", at("signed")});
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_TRUE(isSigned("signed", "a.pub"));
  EXPECT_FALSE(isSigned("signed", "b.pub"));
  EXPECT_FALSE(isSigned("image", "a.pub"));
}

TEST_F(SignTest, AnotherSignatureReplacesTheFirst) {
  makeImage();
  ASSERT_EQ(sign({"--new-key", at("a")}).status, 0);
  ASSERT_EQ(sign({"--new-key", at("b")}).status, 0);
  ASSERT_EQ(sign({at("image"), "--key", at("a.key"), "-o", at("signed")}).status, 0);
  ASSERT_EQ(sign({at("signed"), "--key", at("b.key"), "-o", at("signed")}).status, 0);
  EXPECT_TRUE(isSigned("signed", "b.pub"));
  EXPECT_EQ(readFile(at("signed")).size(), readFile(at("image")).size() + signing::kTrailerBytes);
}

TEST_F(SignTest, InvalidKeysAndImagesAreRefused) {
  makeImage();
  writeFile(at("text"), "text");
  ASSERT_EQ(sign({"--new-key", at("a")}).status, 0);
  EXPECT_THAT(sign({at("image"), "--key", at("text"), "-o", at("out")}).err,
              testing::HasSubstr("not a secret key"));
  EXPECT_THAT(sign({at("image"), "--key", at("a.pub"), "-o", at("out")}).err,
              testing::HasSubstr("not a secret key"));
  EXPECT_THAT(sign({at("text"), "--key", at("a.key"), "-o", at("out")}).err,
              testing::HasSubstr("not a helper image"));
  EXPECT_EQ(sign({at("image")}).status, 2);
  EXPECT_FALSE(std::filesystem::exists(at("out")));
}

}  // namespace
}  // namespace tool
