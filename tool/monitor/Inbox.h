// SPDX-License-Identifier: Apache-2.0

// What the library's threads tell the one that draws.
//
// Threading: any thread.
// Ownership: owns its descriptor.
// Errors: Failure if the kernel refuses one.
// Order: reports as they came, and events as they came.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <vector>

#include "platform/services/FileDescriptor.h"
#include "tool/monitor/Pace.h"

namespace tool::monitor {

class Inbox {
 public:
  /// So many bytes at most wait to be taken; what comes then is lost to the screen.
  static constexpr std::size_t kMostBytes = std::size_t{8} << 20U;

  using Event = std::function<void()>;
  struct Report {
    Time time{};
    std::size_t begin = 0;
    std::size_t length = 0;
  };
  struct News {
    std::vector<Event> events;  ///< to be called by whoever takes them
    std::vector<Report> reports;
    std::vector<std::byte> bytes;
    std::uint64_t leftOut = 0;

    [[nodiscard]] bool isEmpty() const { return events.empty() && reports.empty(); }
    [[nodiscard]] std::span<const std::uint8_t> bytesOf(const Report& report) const;
  };

  Inbox();

  void add(Event event);
  void add(Time time, std::span<const std::byte> report);

  /// Readable while there is something to take.
  [[nodiscard]] int descriptor() const { return readable_.get(); }
  /// In place of `news`, whose memory is used again.
  void takeInto(News& news);

 private:
  void signal();

  platform::FileDescriptor readable_;
  std::mutex mutex_;
  News news_;
};

}  // namespace tool::monitor
