// SPDX-License-Identifier: Apache-2.0

#include "platform/scripted/Trace.h"

#include <algorithm>
#include <utility>

namespace platform {

void Trace::record(TraceEvent event) {
  const std::string line = event.text;
  {
    const std::lock_guard lock(mutex_);
    lines_.push_back({std::this_thread::get_id(), std::move(event)});
  }
  recorded_.notify_all();
  if (watcher_) watcher_(line);
}

void Trace::record(const std::string& line) {
  record({.kind = TraceKind::Note, .object = {}, .name = {}, .arguments = {}, .text = line});
}

void Trace::setWatcher(Watcher watcher) {
  watcher_ = std::move(watcher);
}

bool Trace::waitFor(std::string_view line, std::size_t count, std::chrono::seconds limit) const {
  std::unique_lock lock(mutex_);
  return recorded_.wait_for(lock, limit, [&] {
    return static_cast<std::size_t>(std::count_if(
               lines_.begin(), lines_.end(),
               [line](const Line& recorded) { return recorded.event.text == line; })) >= count;
  });
}

bool Trace::waitForPrefix(std::string_view prefix, std::chrono::seconds limit) const {
  std::unique_lock lock(mutex_);
  return recorded_.wait_for(lock, limit, [&] {
    return std::any_of(lines_.begin(), lines_.end(), [prefix](const Line& recorded) {
      return recorded.event.text.starts_with(prefix);
    });
  });
}

std::vector<std::string> Trace::lines() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> texts;
  texts.reserve(lines_.size());
  for (const Line& line : lines_) texts.push_back(line.event.text);
  return texts;
}

std::vector<TraceEvent> Trace::events() const {
  const std::lock_guard lock(mutex_);
  std::vector<TraceEvent> all;
  all.reserve(lines_.size());
  for (const Line& line : lines_) all.push_back(line.event);
  return all;
}

std::vector<TraceEvent> Trace::events(TraceKind kind) const {
  std::vector<TraceEvent> some = events();
  std::erase_if(some, [kind](const TraceEvent& event) { return event.kind != kind; });
  return some;
}

std::vector<std::string> Trace::linesOfThread(std::thread::id thread) const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> texts;
  for (const Line& line : lines_) {
    if (line.thread == thread) texts.push_back(line.event.text);
  }
  return texts;
}

std::vector<std::string> Trace::take() {
  std::vector<Line> taken;
  {
    const std::lock_guard lock(mutex_);
    taken.swap(lines_);
  }
  std::vector<std::string> texts;
  texts.reserve(taken.size());
  for (Line& line : taken) texts.push_back(std::move(line.event.text));
  return texts;
}

}  // namespace platform
