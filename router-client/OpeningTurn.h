// Who is opening the connection at the moment, or closing it for want of a router.
//
// Two threads that both find no connection would open two and send two start requests; a thread
// that stops while another is opening finds nothing to close yet; and one that says that there is
// no router must not do so while another opens a connection to a new one. So one thread at a time
// does these things, and whoever applies the policy meanwhile leaves a note, upon which that thread
// applies the policy once more. Nobody waits.
//
// One thread alone never notices: it may enter again inside its own turn (a delegate that starts or
// stops the client from its status callback does), and its own visits leave no note.
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
  /// Gives the turn back. True at the end of the outermost turn if somebody left a note.
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
