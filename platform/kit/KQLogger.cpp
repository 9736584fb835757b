// SPDX-License-Identifier: Apache-2.0

#include "platform/kit/KQLogger.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>
#include <mutex>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/PrintableText.h"
#include "platform/foundation/StandardError.h"
#include "platform/kit/KQHIDDeviceElementValue.h"
#include "platform/kit/RecentLogLines.h"

namespace platform {
namespace {

constexpr std::uint64_t kDefaultLevel = 4;

std::uint64_t levelFromEnvironment() {
  const char* const text = ::secure_getenv("KQ_LOG_LEVEL");
  if (text == nullptr) return kDefaultLevel;
  std::uint64_t level = 0;
  const char* const end = text + std::strlen(text);
  const auto [stopped, error] = std::from_chars(text, end, level);
  return error == std::errc() && stopped == end ? level : kDefaultLevel;
}

std::atomic<std::uint64_t>& currentLevel() {
  static std::atomic<std::uint64_t> level{levelFromEnvironment()};
  return level;
}

#ifdef WLHID_LOG_INPUT
constexpr bool kWritesInput = true;
#else
constexpr bool kWritesInput = false;
#endif
constexpr std::size_t kLongestLine = 4000;

void writeToStandardError(const KQLogEntry& entry) {
  KQLogEntry shown = entry;
  if (!kWritesInput && entry.showsInput) shown.message = entry.messageWithoutInput;
  writeLineToStandardError(printableLine(renderLogEntry(shown), kLongestLine));
}

std::shared_ptr<KQLogSink> standardErrorSink() {
  return std::make_shared<KQLogSink>(&writeToStandardError);
}

/// How deep a collection is searched for input; anything deeper counts as input.
constexpr int kMaximumNesting = 8;

bool showsInput(const NSObject* object, int nesting);

bool anyShowsInput(const NSArray& array, int nesting) {
  for (std::size_t i = 0; i < array.count(); ++i) {
    if (showsInput(array.objectAtIndex(i).get(), nesting)) return true;
  }
  return false;
}

bool anyShowsInput(const NSDictionary& dictionary, int nesting) {
  return std::ranges::any_of(dictionary.entries(), [&](const NSDictionary::Entry& entry) {
    return showsInput(entry.first.get(), nesting) || showsInput(entry.second.get(), nesting);
  });
}

/// Whether an object's description can show what a device sent.
bool showsInput(const NSObject* object, int nesting) {
  if (object == nullptr) return false;
  if (nesting > kMaximumNesting) return true;
  if (const auto* array = dynamic_cast<const NSArray*>(object))
    return anyShowsInput(*array, nesting + 1);
  if (const auto* dictionary = dynamic_cast<const NSDictionary*>(object))
    return anyShowsInput(*dictionary, nesting + 1);
  if (const auto* error = dynamic_cast<const NSError*>(object))
    return showsInput(error->userInfo().get(), nesting + 1);
  return dynamic_cast<const NSData*>(object) != nullptr ||
         dynamic_cast<const KQHIDDeviceElementValue*>(object) != nullptr;
}

bool showsInput(const FormatArgument& argument) {
  const auto* object = std::get_if<std::shared_ptr<NSObject>>(&argument);
  return object != nullptr && showsInput(object->get(), 0);
}

/// What replaces an argument of a line that shows input. Numbers are replaced too: they reveal
/// which key it was just as the data does.
FormatArgument withoutInput(const FormatArgument& argument) {
  const auto* object = std::get_if<std::shared_ptr<NSObject>>(&argument);
  if (object == nullptr) return std::string("(left out)");
  if (!showsInput(argument)) return argument;
  if (const auto* data = dynamic_cast<const NSData*>(object->get()))
    return stringWithFormat("{length = %zu}", data->length());
  return std::string("(input left out)");
}

std::string renderWithoutInput(std::string_view format, std::span<const FormatArgument> arguments) {
  std::vector<FormatArgument> shown;
  std::ranges::transform(arguments, std::back_inserter(shown), &withoutInput);
  return renderFormat(format, shown);
}

std::optional<std::int64_t> onlyNumber(std::span<const FormatArgument> arguments) {
  if (arguments.size() != 1) return std::nullopt;
  if (const auto* number = std::get_if<std::int64_t>(&arguments[0])) return *number;
  if (const auto* number = std::get_if<std::uint64_t>(&arguments[0]))
    return static_cast<std::int64_t>(*number);
  const auto* object = std::get_if<std::shared_ptr<NSObject>>(&arguments[0]);
  if (object == nullptr) return std::nullopt;
  if (*object == nullptr) return 0;
  const auto* error = dynamic_cast<const NSError*>(object->get());
  return error != nullptr ? std::optional(error->code()) : std::nullopt;
}

}  // namespace

struct WLHID_NO_EXPORT KQLogger::State {
  mutable std::mutex mutex;
  std::shared_ptr<KQLogSink> sink = standardErrorSink();
  std::shared_ptr<RecentLogLines> recentLines = std::make_shared<RecentLogLines>();
  std::vector<std::shared_ptr<KQLogModule>> modules{
      std::make_shared<RecentLogLinesModule>(recentLines)};
};

KQLogger::KQLogger() : state_(std::make_unique<State>()) {}

KQLogger& KQLogger::sharedLogger() {
  static auto& logger = *new KQLogger();
  return logger;
}

std::uint64_t KQLogger::logLevel() {
  return currentLevel().load(std::memory_order_relaxed);
}
void KQLogger::setLogLevel(std::uint64_t level) {
  currentLevel().store(level, std::memory_order_relaxed);
}

RecentLogLines& KQLogger::recentLines() {
  return *state_->recentLines;
}

void KQLogger::formatAndSend(KQLogEntry entry, std::span<const FormatArgument> arguments) {
  const std::string message = renderFormat(entry.format, arguments);
  entry.message = message;
  entry.showsInput =
      std::ranges::any_of(arguments, [](const auto& argument) { return showsInput(argument); });
  const std::string other = entry.showsInput ? renderWithoutInput(entry.format, arguments) : "";
  entry.messageWithoutInput = entry.showsInput ? std::string_view(other) : entry.message;
  entry.onlyNumber = onlyNumber(arguments);
  state_->recentLines->add(entry);
  send(entry);
}

void KQLogger::send(const KQLogEntry& entry) {
  std::shared_ptr<KQLogSink> sink;
  {
    const std::lock_guard lock(state_->mutex);
    sink = state_->sink;
  }
  try {
    if (*sink) (*sink)(entry);
  } catch (...) {
    // A line that cannot be written must not affect the program.
    return;
  }
}

std::shared_ptr<KQLogSink> KQLogger::setSink(std::shared_ptr<KQLogSink> sink) {
  if (!sink) sink = standardErrorSink();
  const std::lock_guard lock(state_->mutex);
  state_->sink.swap(sink);
  return sink;
}

bool KQLogger::addModule(std::shared_ptr<KQLogModule> module) {
  if (!module) return false;
  const std::lock_guard lock(state_->mutex);
  const bool known = std::ranges::any_of(state_->modules, [&](const auto& kept) {
    return kept->identifier() && kept->identifier()->isEqual(module->identifier());
  });
  if (!known) state_->modules.push_back(std::move(module));
  return !known;
}

std::vector<std::shared_ptr<KQLogModule>> KQLogger::modules() const {
  const std::lock_guard lock(state_->mutex);
  return state_->modules;
}

std::string renderLogEntry(const KQLogEntry& entry) {
  std::string line = '<' + std::to_string(entry.level) + "> ";
  line.append(entry.function).append(":").append(std::to_string(entry.sourceLine)).append(" ");
  if (entry.tags && entry.tags->count() > 0) {
    line += '[';
    for (std::size_t i = 0; i < entry.tags->count(); ++i) {
      if (i > 0) line += ", ";
      line += entry.tags->objectAtIndex(i)->description();
    }
    line += "] ";
  }
  return line.append(entry.message);
}

}  // namespace platform
