// Leave to change a job: who may give it, and what it covers.
//
// Threading: one thread. Ownership, Errors, Order: plain values.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "platform/services/Control.h"
#include "platform/services/UnixSocket.h"

namespace jobd {

/// Decides whether the caller, as the kernel names it, may change the job. Answers when it knows,
/// at once or later, once: on a root of the system a person is asked meanwhile.
using Authority =
    std::function<void(const platform::PeerCredentials& caller, const std::string& label,
                       const std::function<void(bool mayChange)>& decided)>;

/// What one authorization covers: a removal of one job and then a bless of the same, each once.
class Leave {
 public:
  explicit Leave(std::string label) : label_(std::move(label)) {}

  /// Whether it covers the request, which is used up by the question.
  bool use(const platform::ControlRequest& request) {
    using Operation = platform::ControlRequest::Operation;
    if (request.label != label_) return false;
    if (request.operation == Operation::Remove) return std::exchange(coversRemove_, false);
    if (request.operation != Operation::Bless) return false;
    coversRemove_ = false;
    return std::exchange(coversBless_, false);
  }
  [[nodiscard]] bool isUsedUp() const { return !coversBless_; }

 private:
  std::string label_;
  bool coversRemove_ = true;
  bool coversBless_ = true;
};

}  // namespace jobd
