// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/Base64.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(Base64, WritesThePaddingThatItsLengthAsksFor) {
  EXPECT_EQ(base64(Bytes{}), "");
  EXPECT_EQ(base64(Bytes{'f'}), "Zg==");
  EXPECT_EQ(base64(Bytes{'f', 'o'}), "Zm8=");
  EXPECT_EQ(base64(Bytes{'f', 'o', 'o'}), "Zm9v");
  EXPECT_EQ(base64(Bytes{'f', 'o', 'o', 'b', 'a', 'r'}), "Zm9vYmFy");
  EXPECT_EQ(base64(Bytes{0xFB, 0xEF, 0xFF}), "++//");
}

TEST(Base64, ReadsWhatItWroteAtEveryLength) {
  Bytes bytes;
  for (int i = 0; i < 300; ++i) {
    EXPECT_EQ(bytesOfBase64(base64(bytes)), bytes);
    bytes.push_back(static_cast<std::uint8_t>(i * 37));
  }
}

TEST(Base64, SkipsBlanks) {
  EXPECT_EQ(bytesOfBase64("\n\tZ m\r\n8 =\n"), (Bytes{'f', 'o'}));
}

TEST(Base64, EveryCharacterIsASextetOrIsRefused) {
  constexpr std::string_view alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (unsigned c = 0; c < 256; ++c) {
    const auto character = static_cast<char>(c);
    const std::size_t sextet = alphabet.find(character);
    const bool is = sextet != std::string_view::npos;
    const auto text = [&](std::string_view before, std::string_view after) {
      return std::string(before) + character + std::string(after);
    };
    const auto whole = bytesOfBase64(text("", "AAA"));
    ASSERT_EQ(whole.has_value(), is) << c;
    EXPECT_EQ(bytesOfBase64(text("A", "==")).has_value(), is && sextet % 16 == 0) << c;
    EXPECT_EQ(bytesOfBase64(text("AA", "=")).has_value(), c == '=' || (is && sextet % 4 == 0)) << c;
    if (!is) continue;
    EXPECT_EQ(*whole, (Bytes{static_cast<std::uint8_t>(sextet << 2), 0, 0})) << c;
    EXPECT_EQ(base64(*whole), text("", "AAA"));
  }
}

TEST(Base64, RefusesTextThatIsNone) {
  for (const char* text : {"Z", "Zg", "Zg=", "Zm8", "Zm9v=", "Zg===", "=",
                           "====", "Zg==Zg==", "Z*==", "Zh==", "Zm9=", "Zg=\x01="}) {
    EXPECT_EQ(bytesOfBase64(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace platform
