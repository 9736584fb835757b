// SPDX-License-Identifier: Apache-2.0

// Which thread is opening the connection, or closing it because the router is gone.
//
// Without turns, two threads that both find no connection would open two and send two start
// requests; a thread that stops the client while another is opening would find nothing to close;
// and a thread could report that the router is missing while another connects to a new one. So one
// thread at a time does these things. Another thread that applies the policy meanwhile leaves a
// note, and the thread that has the turn then applies the policy again. No thread waits.
//
// A single thread is not affected: it may enter again inside its own turn (as a delegate does that
// starts or stops the client in its status callback), and its own visits leave no note.
//
// Threading: any thread. No lock is held during a turn.
// Order: a note left during a turn is seen at its end. A visit that finds no turn happens before
//   the next turn begins.
#pragma once

#include <mutex>
#include <thread>

namespace wlhid {

class OpeningTurn {
 public:
  /// Leaves a note if another thread has the turn.
  void visit();
  /// Takes the turn, or leaves a note and returns false if another thread has it.
  [[nodiscard]] bool enter();
  /// Ends the turn. True at the end of the outermost turn if another thread left a note.
  [[nodiscard]] bool leave();

 private:
  [[nodiscard]] bool isElsewhere() const {
    return depth_ > 0 && owner_ != std::this_thread::get_id();
  }

  std::mutex mutex_;
  std::thread::id owner_;
  unsigned depth_ = 0;
  bool noted_ = false;
};

}  // namespace wlhid
