// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "platform/kit/KQLogModule.h"

namespace platform {
namespace {

TEST(LogFile, KeepsWhatItIsMadeOfAndAsksItsSource) {
  int asked = 0;
  const auto file = KQLogFile::initWithName_localizedDescription_categoryName_source(
      str("a.log"), str("A log"), str("Logs"),
      [&](const std::shared_ptr<KQLogFile>& self, const KQLogFile::ResultHandler& handler) {
        ++asked;
        handler(nullptr, nullptr, NSData::dataWithBytes({}), self->name()->isEqual(str("a.log")));
      });
  EXPECT_TRUE(file->name()->isEqual(str("a.log")));
  EXPECT_TRUE(file->localizedDescription()->isEqual(str("A log")));
  EXPECT_TRUE(file->categoryName()->isEqual(str("Logs")));
  EXPECT_EQ(file->className(), "KQLogFile");
  bool named = false;
  file->source()(file, [&](const auto& error, const auto& url, const auto& data, bool flag) {
    named = flag && !error && !url && data;
  });
  EXPECT_TRUE(named);
  EXPECT_EQ(asked, 1);
}

}  // namespace
}  // namespace platform
