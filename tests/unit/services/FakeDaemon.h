// SPDX-License-Identifier: Apache-2.0

// A job daemon that answers as a test says and records its requests.
//
// Threading: answers on its own thread. A request may be read once it has been answered.
// Order: requests of all callers in order of arrival.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/services/Control.h"
#include "platform/services/SystemRoot.h"
#include "platform/services/UnixSocket.h"

namespace servicestest {

class FakeDaemon {
 public:
  /// The bytes of the reply; if empty, the connection is closed instead.
  using Answer = std::function<std::vector<std::uint8_t>(const platform::ControlRequest& request)>;

  static std::vector<std::uint8_t> yes(const platform::ControlRequest&) {
    return encode(platform::ControlReply{});
  }
  static std::vector<std::uint8_t> no(platform::ServiceErrorCode code, const std::string& message) {
    platform::ControlReply reply;
    reply.code = code;
    reply.message = message;
    return encode(reply);
  }

  explicit FakeDaemon(const platform::SystemRoot& root, Answer answer = yes)
      : answer_(std::move(answer)) {
    const auto run = root.controlEndpoint().parent_path();
    std::filesystem::create_directories(run);
    const platform::FileDescriptor directory(::open(run.c_str(), O_RDONLY | O_CLOEXEC));
    endpoint_ = platform::listenUnixSocketAt(directory.get(), "jobd.sock", SOCK_STREAM, 64, 0600);
    EXPECT_TRUE(endpoint_);
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    end_.reset(ends[0]);
    ending_.reset(ends[1]);
    thread_ = std::thread([this] { serve(); });
  }
  FakeDaemon(const FakeDaemon&) = delete;
  FakeDaemon& operator=(const FakeDaemon&) = delete;
  ~FakeDaemon() {
    ending_.reset();
    thread_.join();
  }

  /// The requests in order: "authorize com.x", "remove com.x at once", "bless com.x with a file".
  std::vector<std::string> asked() const {
    const std::lock_guard lock(mutex_);
    return asked_;
  }

 private:
  struct Caller {
    platform::FileDescriptor socket;
    platform::FrameReader reader;
  };

  static std::string told(const platform::ControlRequest& request, bool hasFile) {
    using Operation = platform::ControlRequest::Operation;
    std::string text = request.operation == Operation::Authorize ? "authorize"
                       : request.operation == Operation::Bless   ? "bless"
                       : request.operation == Operation::Remove  ? "remove"
                                                                 : "status";
    if (!request.label.empty()) text += " " + request.label;
    if (!request.wait) text += " at once";
    return hasFile ? text + " with a file" : text;
  }

  void serve() {
    for (;;) {
      std::vector<pollfd> watched{{end_.get(), POLLIN, 0}, {endpoint_.get(), POLLIN, 0}};
      for (const auto& each : callers_) watched.push_back({each.socket.get(), POLLIN, 0});
      if (::poll(watched.data(), watched.size(), -1) < 0 || watched[0].revents != 0) return;
      auto entry = watched.begin() + 2;
      for (auto each = callers_.begin(); each != callers_.end(); ++entry)
        each = entry->revents == 0 || read(*each) ? std::next(each) : callers_.erase(each);
      if (watched[1].revents != 0)
        callers_.push_back(
            {platform::FileDescriptor(::accept4(endpoint_.get(), nullptr, nullptr, SOCK_CLOEXEC)),
             {}});
    }
  }

  /// False if the caller has gone or its connection is to be closed.
  bool read(Caller& caller) {
    using State = platform::FrameReader::State;
    const State state = caller.reader.readFrom(caller.socket.get());
    if (state != State::Complete) return state == State::NeedMore;
    const auto request = platform::decodeControlRequest(caller.reader.content());
    if (!request) return false;
    {
      const std::lock_guard lock(mutex_);
      asked_.push_back(told(*request, static_cast<bool>(caller.reader.takeDescriptor())));
    }
    caller.reader = {};
    const auto bytes = answer_(*request);
    return !bytes.empty() && ::send(caller.socket.get(), bytes.data(), bytes.size(),
                                    MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }

  Answer answer_;
  platform::FileDescriptor endpoint_;
  platform::FileDescriptor end_;
  platform::FileDescriptor ending_;
  std::list<Caller> callers_;
  mutable std::mutex mutex_;
  std::vector<std::string> asked_;
  std::thread thread_;
};

}  // namespace servicestest
