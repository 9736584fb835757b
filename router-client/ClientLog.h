// SPDX-License-Identifier: Apache-2.0

// Writing a line of the client's log.
//
// The logger's level is read afresh for each line, before its tags, arguments or text are built.
//
// Threading: any thread.
#pragma once

#include <memory>
#include <new>
#include <type_traits>

#include "WLHIDAccess/WLHIDEventRouterClient.h"
#include "platform/foundation/NSArray.h"
#include "platform/kit/KQLogger.h"
#include "router-client/LogSites.h"

namespace wlhid {

[[nodiscard]] inline bool isWanted(const LogSite& site) {
  return platform::KQLogger::logLevel() <= site.level;
}

/// A line that fails for lack of memory is dropped; the operation that it reports goes on.
template <class Line>
void ignoringOutOfMemory(const Line& line) {
  try {
    line();
  } catch (const std::bad_alloc&) {
  }
}

/// A callable argument is called for its value, so that nothing is evaluated for a line that is not
/// wanted.
template <class Argument>
[[nodiscard]] decltype(auto) evaluated(const Argument& argument) {
  if constexpr (std::is_invocable_v<const Argument&>)
    return argument();
  else
    return (argument);
}

/// Call only if isWanted(site).
template <class... Arguments>
void send(const LogSite& site, const std::shared_ptr<platform::NSArray>& tags,
          const Arguments&... arguments) {
  platform::KQLogger::sharedLogger().logAtLevel_function_sourcePath_sourceLine_tags_message(
      site.level, site.function, kLogSourcePath, site.line, tags, site.format,
      evaluated(arguments)...);
}

template <class... Arguments>
void log(const LogSite& site, const WLHIDEventRouterClient& client, const Arguments&... arguments) {
  if (!isWanted(site)) return;
  ignoringOutOfMemory([&] { send(site, client.logTags(), arguments...); });
}

/// For a block, which holds the client weakly: no tags once the client is gone.
template <class... Arguments>
void log(const LogSite& site, const std::weak_ptr<WLHIDEventRouterClient>& weakClient,
         const Arguments&... arguments) {
  if (!isWanted(site)) return;
  const auto client = weakClient.lock();
  ignoringOutOfMemory([&] { send(site, client ? client->logTags() : nullptr, arguments...); });
}

}  // namespace wlhid
