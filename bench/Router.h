// The other process of a benchmark: a router that serves the real protocol, and beside it bare
// sockets as a baseline.
//
// The program starts itself again in this role, with two listening sockets: descriptor 3 for the
// connection layer, descriptor 4 for bare streams. What a session is to send stands in the start
// request's entry ID (see Job).
//
// Threading: RouterProcess belongs to one thread.
// Ownership: it ends its process and removes its sockets with itself.
// Errors: std::runtime_error.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace bench {

inline constexpr std::size_t kReportBytes = 64;
/// On the wire, as docs/wire-protocol.md has it: a header of 8, the data's tag and size, the bytes,
/// the report ID.
inline constexpr std::size_t kReportFrameBytes = 8 + 2 + kReportBytes + 4;
/// Where the report's bytes begin in it, and what each of them is.
inline constexpr std::size_t kReportOffset = 8 + 2;
inline constexpr std::uint8_t kReportFiller = 0x5A;
/// A message without arguments.
inline constexpr std::size_t kEmptyFrameBytes = 8;

enum class Kind : std::uint8_t { Nothing = 0, Stream = 1, PingPong = 2, Paced = 3, Ping = 4 };

/// One session's work. `count` reports, `batch` of them at a time, or `perSecond` where they are
/// paced. Of a ping-pong the pongs come on the connection with that job, upon pings on another.
struct Job {
  Kind kind = Kind::Nothing;
  std::uint8_t batch = 1;
  std::uint32_t count = 0;
  std::uint16_t perSecond = 8000;

  [[nodiscard]] std::uint64_t encode() const {
    return static_cast<std::uint64_t>(perSecond) << 48 | static_cast<std::uint64_t>(kind) << 40 |
           static_cast<std::uint64_t>(batch) << 32 | count;
  }
  static Job decode(std::uint64_t encoded) {
    return {static_cast<Kind>(encoded >> 40 & 0xFF),
            static_cast<std::uint8_t>(encoded >> 32 & 0xFF), static_cast<std::uint32_t>(encoded),
            static_cast<std::uint16_t>(encoded >> 48)};
  }
};

class RouterProcess {
 public:
  RouterProcess();
  RouterProcess(const RouterProcess&) = delete;
  RouterProcess& operator=(const RouterProcess&) = delete;
  ~RouterProcess();

  [[nodiscard]] const std::string& endpoint() const { return endpoint_; }
  /// A connected bare socket whose peer carries out `job`, then closes.
  [[nodiscard]] int connectBare(const Job& job) const;
  /// Processor time of the process so far, in seconds.
  [[nodiscard]] double processorSeconds() const;

 private:
  std::string directory_;
  std::string endpoint_;
  std::string bareEndpoint_;
  pid_t process_ = -1;
};

/// The router's own main, in the started process. Runs until it is killed.
int runRouterRole();

[[nodiscard]] std::uint64_t monotonicNanoseconds();

}  // namespace bench
