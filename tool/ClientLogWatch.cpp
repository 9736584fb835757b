#include "tool/ClientLogWatch.h"

#include <unistd.h>

#include <algorithm>

#include "tool/Command.h"
#include "tool/Output.h"

namespace tool {

namespace {

constexpr std::uint64_t kErrorLevel = 3;
// The client's lines, as its log has them.
constexpr std::string_view kInterruption =
    "WLHIDEventRouterClient: xpcConnectionToService experienced an interruption";
constexpr std::string_view kStartLost = "Error(S): %@";

/// What the line means for a routing, or empty.
std::string meaningOf(const platform::KQLogEntry& entry) {
  if (entry.format == kInterruption) return "the router ended unexpectedly";
  if (entry.format == kStartLost) return "the router gave no answer: " + std::string(entry.message);
  return {};
}

void passOn(const platform::KQLogEntry& entry) {
  Output(STDERR_FILENO).write(oneLine(platform::renderLogEntry(entry)) + "\n");
}

}  // namespace

ClientLogWatch::ClientLogWatch(Handler handler) : userLevel_(platform::KQLogger::logLevel()) {
  auto sink = [handler = std::move(handler),
               userLevel = userLevel_](const platform::KQLogEntry& entry) {
    if (entry.level >= userLevel) passOn(entry);
    const std::string meaning = meaningOf(entry);
    if (!meaning.empty()) handler(meaning);
  };
  previous_ = platform::KQLogger::sharedLogger().setSink(
      std::make_shared<platform::KQLogSink>(std::move(sink)));
  platform::KQLogger::setLogLevel(std::min(userLevel_, kErrorLevel));
}

ClientLogWatch::~ClientLogWatch() {
  platform::KQLogger::setLogLevel(userLevel_);
  platform::KQLogger::sharedLogger().setSink(previous_);
}

}  // namespace tool
