// SPDX-License-Identifier: Apache-2.0

#include "tool/routing/ClientLogWatch.h"

#include <unistd.h>

#include <algorithm>

#include "platform/kit/KQLogger.h"
#include "tool/command/Command.h"
#include "tool/terminal/Output.h"

namespace tool {

namespace {

constexpr std::uint64_t kErrorLevel = 3;
// The lines as the client logs them.
constexpr std::string_view kInterruption =
    "WLHIDEventRouterClient: xpcConnectionToService experienced an interruption";
constexpr std::string_view kStartLost = "Error(S): %@";

/// What the line means for the routing session, or empty.
std::string meaningOf(const platform::KQLogEntry& entry) {
  if (entry.format == kInterruption) return "the router ended unexpectedly";
  if (entry.format == kStartLost) return "the router did not answer: " + std::string(entry.message);
  return {};
}

void passOn(const platform::KQLogEntry& entry, std::uint64_t userLevel) {
  if (entry.level < userLevel) return;
  Output(STDERR_FILENO).write(oneLine(platform::renderLogEntry(entry)) + "\n");
}

}  // namespace

ClientLogWatch::ClientLogWatch(Handler handler) : userLevel_(platform::KQLogger::logLevel()) {
  auto sink = [handler = std::move(handler),
               userLevel = userLevel_](const platform::KQLogEntry& entry) {
    passOn(entry, userLevel);
    const std::string meaning = meaningOf(entry);
    if (!meaning.empty()) handler(meaning);
  };
  platform::KQLogger::sharedLogger().setSink(
      std::make_shared<platform::KQLogSink>(std::move(sink)));
  platform::KQLogger::setLogLevel(std::min(userLevel_, kErrorLevel));
}

ClientLogWatch::~ClientLogWatch() {
  platform::KQLogger::setLogLevel(userLevel_);
  // A line admitted at the lower level may arrive only now and must not be shown either.
  platform::KQLogger::sharedLogger().setSink(std::make_shared<platform::KQLogSink>(
      [userLevel = userLevel_](const platform::KQLogEntry& entry) { passOn(entry, userLevel); }));
}

}  // namespace tool
