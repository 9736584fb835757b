// SPDX-License-Identifier: Apache-2.0

#include "platform/foundation/ReadAhead.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <future>
#include <string>

namespace platform {
namespace {

constexpr std::size_t kPieces = 50;

/// Returns pieces of different lengths, then `last`: 0 for the end, or -1 with an error.
class Source {
 public:
  explicit Source(ssize_t last) : last_(last) {}

  ssize_t read(std::span<char> room) {
    if (given_ == kPieces) {
      errno = EIO;
      return last_;
    }
    const std::size_t size = 1 + given_ * 1000;
    std::fill_n(room.begin(), size, static_cast<char>('a' + given_ % 26));
    ++given_;
    return static_cast<ssize_t>(size);
  }
  static std::string pieces(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
      text.append(1 + i * 1000, static_cast<char>('a' + i % 26));
    return text;
  }

 private:
  const ssize_t last_;
  std::size_t given_ = 0;
};

struct Outcome {
  std::string text;
  int error = 0;
};

Outcome readAll(Source& source, const ReadAhead::Look& look) {
  ReadAhead reader([&](std::span<char> room) { return source.read(room); }, look);
  Outcome outcome;
  for (;;) {
    const ReadAhead::Piece piece = reader.next();
    outcome.error = piece.error;
    if (piece.bytes.empty()) return outcome;
    outcome.text += piece.bytes;
  }
}

TEST(ReadAhead, HandsOutWhatIsReadInOrderToTheEnd) {
  Source source(0);
  std::string looked;
  const Outcome outcome = readAll(source, [&](std::string_view piece) {
    looked += piece;
    return true;
  });
  EXPECT_TRUE(outcome.text == Source::pieces(kPieces));
  EXPECT_TRUE(looked == outcome.text);
  EXPECT_EQ(outcome.error, 0);
}

TEST(ReadAhead, HandsOutWhatWasReadBeforeAnError) {
  Source source(-1);
  const Outcome outcome = readAll(source, [](std::string_view) { return true; });
  EXPECT_TRUE(outcome.text == Source::pieces(kPieces));
  EXPECT_EQ(outcome.error, EIO);
}

TEST(ReadAhead, EndsAheadOfAPieceThatIsRefused) {
  Source source(-1);
  int looks = 0;
  const Outcome outcome = readAll(source, [&](std::string_view) { return ++looks < 10; });
  EXPECT_TRUE(outcome.text == Source::pieces(9));
  EXPECT_EQ(outcome.error, 0);
  EXPECT_EQ(looks, 10);
}

bool isBlocked(int signal) {
  sigset_t blocked;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  return sigismember(&blocked, signal) == 1;
}

TEST(ReadAhead, LeavesSignalsToTheCaller) {
  ASSERT_FALSE(isBlocked(SIGUSR1));
  bool blockedThere = false;
  ReadAhead reader(
      [&](std::span<char>) {
        blockedThere = isBlocked(SIGUSR1);
        return ssize_t{0};
      },
      [](std::string_view) { return true; });
  EXPECT_FALSE(isBlocked(SIGUSR1));
  EXPECT_EQ(reader.next().bytes, "");
  EXPECT_TRUE(blockedThere);
}

TEST(ReadAhead, ReadsAheadWhileAPieceIsHeldAndNoFurtherThanItHasRoom) {
  std::atomic<int> reads{0};
  std::promise<void> second;
  ReadAhead reader(
      [&](std::span<char> room) {
        if (++reads == 2) second.set_value();
        room[0] = 'x';
        return ssize_t{1};
      },
      [](std::string_view) { return true; });
  EXPECT_EQ(reader.next().bytes, "x");
  EXPECT_EQ(second.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_LE(reads.load(), 4);
}

}  // namespace
}  // namespace platform
