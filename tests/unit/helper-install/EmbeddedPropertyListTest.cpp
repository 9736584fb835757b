// SPDX-License-Identifier: Apache-2.0

// Extracting the embedded property list from an executable's data.
#include <gtest/gtest.h>

#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "platform/scripted/HelperImage.h"

namespace test {
namespace {

using platform::NSData;

std::string text(const std::shared_ptr<NSData>& data) {
  return data ? std::string(reinterpret_cast<const char*>(data->span().data()), data->length())
              : "nil";
}

TEST(EmbeddedPropertyList, NullAndEmptyDataHaveNone) {
  EXPECT_EQ(KQPrivilegedHelperManager::extractInfoPlistFromData(nullptr), nullptr);
  EXPECT_EQ(KQPrivilegedHelperManager::extractInfoPlistFromData(NSData::dataWithBytes({})),
            nullptr);
}

TEST(EmbeddedPropertyList, TheSectionsBytesComeBackUnparsedAndOutliveTheFile) {
  auto file = NSData::dataWithBytes(platform::helperImageWithInfoPlist("anything at all"));
  const auto list = KQPrivilegedHelperManager::extractInfoPlistFromData(file);
  file.reset();
  EXPECT_EQ(text(list), "anything at all");
}

TEST(EmbeddedPropertyList, EveryShorterFileHasNone) {
  const std::vector<std::uint8_t> whole = platform::helperImageWithInfoPlist("x");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const auto cut = NSData::dataWithBytes(std::span(whole).first(length));
    EXPECT_EQ(KQPrivilegedHelperManager::extractInfoPlistFromData(cut), nullptr) << length;
  }
}

}  // namespace
}  // namespace test
