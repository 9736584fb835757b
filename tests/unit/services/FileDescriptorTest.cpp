// SPDX-License-Identifier: Apache-2.0

#include "platform/services/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <utility>

namespace {

using platform::FileDescriptor;

int opened() {
  return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}
bool isOpen(int descriptor) {
  return ::fcntl(descriptor, F_GETFD) >= 0;
}

TEST(FileDescriptor, IsClosedWithItsOwner) {
  const int number = opened();
  {
    const FileDescriptor owner(number);
    EXPECT_TRUE(owner);
    EXPECT_TRUE(isOpen(number));
  }
  EXPECT_FALSE(isOpen(number));
}

TEST(FileDescriptor, AnEmptyOneIsNone) {
  const FileDescriptor none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.get(), -1);
}

TEST(FileDescriptor, TheFirstNumberIsOneLikeAnyOther) {
  const FileDescriptor kept(::fcntl(0, F_DUPFD_CLOEXEC, 3));
  const FileDescriptor null(opened());
  ASSERT_EQ(::dup2(null.get(), 0), 0);
  {
    const FileDescriptor first(0);
    EXPECT_TRUE(first);
  }
  EXPECT_FALSE(isOpen(0));
  if (kept) {
    ASSERT_EQ(::dup2(kept.get(), 0), 0);
  }
}

TEST(FileDescriptor, WhatIsGivenAwayStaysOpen) {
  FileDescriptor owner(opened());
  const int number = owner.release();
  EXPECT_FALSE(owner);
  EXPECT_TRUE(isOpen(number));
  ::close(number);
}

TEST(FileDescriptor, AnotherTakesThePlaceOfTheFirstWhichIsClosed) {
  const int first = opened();
  const int second = opened();
  FileDescriptor owner(first);
  owner.reset(second);
  EXPECT_FALSE(isOpen(first));
  EXPECT_TRUE(isOpen(second));
  owner.reset();
  EXPECT_FALSE(isOpen(second));
  EXPECT_FALSE(owner);
}

TEST(FileDescriptor, MovesToItsNewOwner) {
  const int first = opened();
  const int second = opened();
  FileDescriptor from(first);
  FileDescriptor to(second);
  to = std::move(from);
  EXPECT_EQ(to.get(), first);
  EXPECT_FALSE(isOpen(second));
  FileDescriptor& same = to;
  to = std::move(same);
  EXPECT_EQ(to.get(), first) << "a move to itself changes nothing";
  EXPECT_TRUE(isOpen(first));
  const FileDescriptor last(std::move(to));
  EXPECT_EQ(last.get(), first);
}

}  // namespace
