// SPDX-License-Identifier: Apache-2.0

#include "platform/system/LoginSessions.h"

#include <atomic>
#include <utility>

#include "platform/system/SessionWatches.h"

namespace platform::system {
namespace {

/// Unique among all objects of this process.
std::atomic<std::uint64_t> lastWatch{0};

}  // namespace

LoginSessions::LoginSessions(SystemBus& bus, Options options)
    : bus_(bus), lookup_(std::move(options.lookup)) {
  bus_.run(
      [&] { watches_ = std::make_shared<SessionWatches>(bus_, options.changes, options.limit); });
}

LoginSessions::~LoginSessions() {
  bus_.run([this] { watches_->end(); });
  // This may be within one of their calls, so they go later, and on the thread they belong to.
  bus_.post([watches = std::move(watches_)] {});
}

std::optional<std::string> LoginSessions::sessionOf(const PeerProcess& process) const {
  std::optional<std::string> session = lookup_.find(process.processID());
  // If it has ended, somebody else may have had its number.
  return process.isAlive() ? session : std::nullopt;
}

LoginSessions::WatchID LoginSessions::watch(const std::string& session, Changed changed) {
  const auto id = static_cast<WatchID>(lastWatch.fetch_add(1) + 1);
  bus_.post([watches = watches_, id, session, changed = std::move(changed)]() mutable {
    watches->add(id, session, std::move(changed));
  });
  return id;
}

void LoginSessions::unwatch(WatchID watch) {
  const auto remove = [watches = watches_, watch] { watches->remove(watch); };
  if (bus_.isOnItsThread())
    remove();
  else
    bus_.post(remove);
}

}  // namespace platform::system
