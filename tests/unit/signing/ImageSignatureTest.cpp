// SPDX-License-Identifier: Apache-2.0

#include "platform/signing/ImageSignature.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

using namespace platform::signing;

std::vector<std::uint8_t> signedWith(const SecretKey& key, std::vector<std::uint8_t> image) {
  const Trailer trailer = trailerFor(image, key);
  image.insert(image.end(), trailer.begin(), trailer.end());
  return image;
}

std::vector<std::uint8_t> someImage() {
  std::vector<std::uint8_t> image(1000);
  for (std::size_t i = 0; i < image.size(); ++i) image[i] = static_cast<std::uint8_t>(i * 7);
  return image;
}

TEST(ImageSignature, IsThatOfItsKeyOnly) {
  const KeyPair pair = newKeyPair();
  const auto image = signedWith(pair.secretKey, someImage());
  EXPECT_TRUE(isSignedWith(image, pair.publicKey));
  EXPECT_FALSE(isSignedWith(image, newKeyPair().publicKey));
  EXPECT_FALSE(isSignedWith(someImage(), pair.publicKey));
  EXPECT_FALSE(isSignedWith({}, pair.publicKey));
}

TEST(ImageSignature, CoversEveryByte) {
  const KeyPair pair = newKeyPair();
  auto image = signedWith(pair.secretKey, someImage());
  for (auto& byte : image) {
    byte ^= 1U;
    EXPECT_FALSE(isSignedWith(image, pair.publicKey)) << &byte - image.data();
    byte ^= 1U;
  }
  EXPECT_TRUE(isSignedWith(image, pair.publicKey));
  image.insert(image.begin(), 0);
  EXPECT_FALSE(isSignedWith(image, pair.publicKey));
}

/// RFC 8032, section 7.1, test 3: a message of two bytes.
TEST(ImageSignature, IsThePublishedAlgorithm) {
  const SecretKey key{0xc5, 0xaa, 0x8d, 0xf4, 0x3f, 0x9f, 0x83, 0x7b, 0xed, 0xb7, 0x44, 0x2f, 0x31,
                      0xdc, 0xb7, 0xb1, 0x66, 0xd3, 0x85, 0x35, 0x07, 0x6f, 0x09, 0x4b, 0x85, 0xce,
                      0x3a, 0x2e, 0x0b, 0x44, 0x58, 0xf7, 0xfc, 0x51, 0xcd, 0x8e, 0x62, 0x18, 0xa1,
                      0xa3, 0x8d, 0xa4, 0x7e, 0xd0, 0x02, 0x30, 0xf0, 0x58, 0x08, 0x16, 0xed, 0x13,
                      0xba, 0x33, 0x03, 0xac, 0x5d, 0xeb, 0x91, 0x15, 0x48, 0x90, 0x80, 0x25};
  const std::vector<std::uint8_t> message{0xaf, 0x82};
  const std::vector<std::uint8_t> expected{
      0x62, 0x91, 0xd6, 0x57, 0xde, 0xec, 0x24, 0x02, 0x48, 0x27, 0xe6, 0x9c, 0x3a,
      0xbe, 0x01, 0xa3, 0x0c, 0xe5, 0x48, 0xa2, 0x84, 0x74, 0x3a, 0x44, 0x5e, 0x36,
      0x80, 0xd7, 0xdb, 0x5a, 0xc3, 0xac, 0x18, 0xff, 0x9b, 0x53, 0x8d, 0x16, 0xf2,
      0x90, 0xae, 0x67, 0xf7, 0x60, 0x98, 0x4d, 0xc6, 0x59, 0x4a, 0x7c, 0x15, 0xe9,
      0x71, 0x6e, 0xd2, 0x8d, 0xc0, 0x27, 0xbe, 0xce, 0xea, 0x1e, 0xc4, 0x0a};
  const Trailer trailer = trailerFor(message, key);
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), trailer.begin()));
}

TEST(ImageSignature, ATrailerIsTakenOffAndAnotherPutOn) {
  const KeyPair pair = newKeyPair();
  const auto image = signedWith(pair.secretKey, someImage());
  const auto bare = withoutTrailer(image);
  EXPECT_TRUE(std::ranges::equal(bare, someImage()));
  EXPECT_TRUE(std::ranges::equal(withoutTrailer(bare), someImage()));
}

TEST(ImageSignature, KeysAreTexts) {
  const KeyPair pair = newKeyPair();
  EXPECT_EQ(publicKeyIn(textOf(pair.publicKey)), pair.publicKey);
  EXPECT_EQ(secretKeyIn(textOf(pair.secretKey)), pair.secretKey);
  const std::string text = textOf(pair.publicKey);
  EXPECT_FALSE(publicKeyIn(""));
  EXPECT_FALSE(publicKeyIn("# nothing but a comment\n"));
  EXPECT_FALSE(publicKeyIn(text + text)) << "two keys";
  EXPECT_FALSE(publicKeyIn(text.substr(0, text.size() - 3)));
  EXPECT_FALSE(publicKeyIn(textOf(pair.secretKey))) << "a key of the other kind";
  EXPECT_FALSE(secretKeyIn(text));
}

}  // namespace
