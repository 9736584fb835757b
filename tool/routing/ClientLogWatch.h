// SPDX-License-Identifier: Apache-2.0

// Reads what the framework reports about a client only in its log: that the router died silently,
// that a start request was lost. An application would have to read the log as well.
//
// Threading: created and destroyed on the main thread; the handler runs on whichever thread logs.
// Ownership: the watch holds the handler; so does any line in flight while the watch is destroyed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace tool {

/// While it lives, the shared logger lets errors through, the handler is called for those that end
/// a routing session, and lines admitted by the user's own level go to standard error as usual. The
/// sink that does the latter stays in place afterwards.
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
