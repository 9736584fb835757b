// Who is opening the connection at the moment.
//
// Two threads that both find no connection would open two and send two start requests; and a thread
// that stops while another is opening finds nothing to close yet. So one thread at a time opens,
// and whoever applies the policy meanwhile leaves a note, upon which the opener applies the policy
// once more. Nobody waits.
//
// One thread alone never notices: it may enter again inside its own turn (a delegate that starts or
// stops the client from its status callback does), and its own visits leave no note.
//
// Threading: any thread. No lock is held during a turn.
// Ownership, Errors: none.
// Order: a note left during a turn is seen at its end. A visit that finds no turn happens before
//   the next turn begins.
#pragma once

#include <mutex>
#include <thread>
#include <utility>

namespace wlhid {

class OpeningTurn {
 public:
  /// Leaves a note if another thread has the turn.
  void visit();
  /// Takes the turn, or leaves a note and returns false if another thread has it.
  [[nodiscard]] bool enter();
  /// Gives the turn back. True at the end of the outermost turn if somebody left a note.
  [[nodiscard]] bool leave();

  /// Leaves once: when told to, or, without an answer, when an exception passes.
  class Exit {
   public:
    explicit Exit(OpeningTurn& turn) : turn_(&turn) {}
    ~Exit() {
      if (turn_ != nullptr) (void)turn_->leave();
    }
    Exit(const Exit&) = delete;
    Exit& operator=(const Exit&) = delete;

    [[nodiscard]] bool leave() { return std::exchange(turn_, nullptr)->leave(); }

   private:
    OpeningTurn* turn_;
  };

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
