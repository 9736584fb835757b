// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Inbox.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "tool/command/Command.h"

namespace tool::monitor {

std::span<const std::uint8_t> Inbox::News::bytesOf(const Report& report) const {
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()) + report.begin, report.length};
}

Inbox::Inbox() : readable_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!readable_) throw Failure("cannot make an event descriptor: " + describeErrno(errno));
}

/// Once for everything that waits, so that thousands of reports a second cost no thousands of
/// calls.
void Inbox::signal() {
  const std::uint64_t one = 1;
  static_cast<void>(!::write(readable_.get(), &one, sizeof one));
}

void Inbox::add(Event event) {
  const std::lock_guard lock(mutex_);
  if (news_.isEmpty()) signal();
  news_.events.push_back(std::move(event));
}

void Inbox::add(Time time, std::span<const std::byte> report) {
  const std::lock_guard lock(mutex_);
  if (news_.bytes.size() + news_.reports.size() * sizeof(Report) + report.size() > kMostBytes) {
    ++news_.leftOut;
    return;
  }
  if (news_.isEmpty()) signal();
  news_.reports.push_back({time, news_.bytes.size(), report.size()});
  news_.bytes.insert(news_.bytes.end(), report.begin(), report.end());
}

void Inbox::takeInto(News& news) {
  news.events.clear();
  news.reports.clear();
  news.bytes.clear();
  news.leftOut = 0;
  const std::lock_guard lock(mutex_);
  std::swap(news, news_);
  std::uint64_t count = 0;
  static_cast<void>(!::read(readable_.get(), &count, sizeof count));
}

}  // namespace tool::monitor
