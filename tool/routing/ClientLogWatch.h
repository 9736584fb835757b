// What the framework tells of a client only in its log: that the router ended without a word, that
// a start request was lost. An application that wants to know reads the log, and so does this
// command.
//
// Threading: made and destroyed on the main thread; the handler runs wherever the framework logs.
// Ownership: the watch holds the handler, and so does a line that is on its way while the watch
//   goes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/kit/KQLogger.h"

namespace tool {

/// While it lives, the shared logger lets errors through, the handler hears of those that end a
/// routing, and lines that the user's own level admits go to standard error as they would without a
/// watch; the sink that sees to the latter stays.
class ClientLogWatch {
 public:
  using Handler = std::function<void(const std::string& what)>;

  explicit ClientLogWatch(Handler handler);
  ~ClientLogWatch();
  ClientLogWatch(const ClientLogWatch&) = delete;
  ClientLogWatch& operator=(const ClientLogWatch&) = delete;

 private:
  const std::uint64_t userLevel_;
};

}  // namespace tool
