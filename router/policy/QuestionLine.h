// SPDX-License-Identifier: Apache-2.0

// The questions that are put to people, so that no application can wear anyone down with them: a
// user sees one at a time, and after a question that was not answered with yes there is a pause,
// which doubles with each further one.
//
// Threading: any thread. Callbacks come with no lock held, from the call that causes them.
// Ownership: a place belongs to its question. Dropping it takes the question out of the line, and
//   the next one opens. A question that was open and had no answer is withdrawn: those that wait
//   still open, but then there is a pause as after a no.
// Order: a user's questions open in the order in which they came. A no refuses all that wait.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace router {

struct QuestionLimits {
  std::chrono::seconds firstPause{10};
  std::chrono::seconds longestPause{600};
  std::size_t waitingPerUser = 16;  ///< else one user's questions fill memory
};

class QuestionLine : public std::enable_shared_from_this<QuestionLine> {
 public:
  using Clock = std::chrono::steady_clock;
  enum class Answer {
    Yes,
    No,
    NobodyToAsk,  ///< no question was seen, so none has to wait
  };

  /// Exactly one of the two is called, unless the place goes first.
  struct Question {
    std::function<void()> open;
    std::function<void(const std::string& reason)> refuse;
  };

  class Place {
   public:
    Place(std::shared_ptr<QuestionLine> line, uid_t user, std::uint64_t number)
        : line_(std::move(line)), user_(user), number_(number) {}
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place() { line_->leave(user_, number_); }
    /// From now on the question may open, at once if it is first in the line.
    void begin() { line_->begin(user_, number_); }
    /// What the person said to the open question.
    void answered(Answer answer) { line_->answered(user_, number_, answer); }

   private:
    const std::shared_ptr<QuestionLine> line_;
    const uid_t user_;
    const std::uint64_t number_;
  };

  explicit QuestionLine(const QuestionLimits& limits = {},
                        std::function<Clock::time_point()> now = Clock::now)
      : limits_(limits), now_(std::move(now)) {}

  /// Whether an answer of somebody's still counts against the next question.
  [[nodiscard]] bool remembersAnybody();

  /// Null after a refusal, which comes at once. Nothing else is called before begin().
  [[nodiscard]] std::unique_ptr<Place> enter(uid_t user, Question question);

 private:
  struct Waiting {
    std::uint64_t number = 0;
    Question question;
    bool hasBegun = false;
    bool isAnswered = false;
  };
  struct User {
    std::deque<Waiting> line;  // the first one is open if it has begun
    Clock::time_point pausedUntil{};
    std::chrono::seconds nextPause{0};
  };

  void begin(uid_t user, std::uint64_t number);
  void answered(uid_t user, std::uint64_t number, Answer answer);
  void leave(uid_t user, std::uint64_t number);
  void pauseLocked(User* user);
  std::string refusalLocked(uid_t user);
  void forgetLocked();

  const QuestionLimits limits_;
  const std::function<Clock::time_point()> now_;
  std::mutex mutex_;
  std::map<uid_t, User> users_;
  std::uint64_t latest_ = 0;
};

}  // namespace router
