// SPDX-License-Identifier: Apache-2.0

// The most that the router grants to one client, one user, one file and one device.
//
// Each limit states the harm that it prevents. Honest clients and real devices stay far below them;
// a client that exceeds one is refused with a reason or slowed down, and what is left out is
// counted and logged.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace router {

/// A burst, and from then on so many per second.
struct Rate {
  double burst = 0;
  double perSecond = 0;
};

struct RouterLimits {
  // Connections and requests. Each session takes a thread and a descriptor.
  std::size_t sessions = 256;         ///< else the process runs out of threads and descriptors
  std::size_t sessionsPerUser = 128;  ///< else one user's connections lock everyone else out
  Rate startsPerUser{1000, 500};      ///< else one user's requests keep disk and processor busy
  Rate starts{2000, 1000};            ///< the same, for users acting together
  /// A request over its rate limit waits for its turn at most this long; then it is refused.
  std::chrono::milliseconds startTimeout{1000};
  /// A client that stops and starts again uses a new connection, and the end of the old one may be
  /// noticed only after the new start. So a start request waits this long for a place at a device
  /// that other clients use.
  std::chrono::milliseconds handoverGrace{250};
  /// A client whose routing has ended for good asks again when it has processed what it got. If
  /// that takes longer than this, it gets the device once more: an answer remembered for ever would
  /// reach another process with the same ID.
  std::chrono::seconds endedRoutingLifetime{600};

  // The control service. Each device of a listing is a question to the system's authorities.
  std::size_t controlConnections = 64;         ///< else the process runs out of threads
  std::size_t controlConnectionsPerUser = 16;  ///< else one user locks the administrator out
  Rate controlRequestsPerUser{20, 2};  ///< else one user keeps the authorities busy for nothing
  Rate controlRequests{100, 20};       ///< the same, for users acting together
  /// A listing waits for answers at most this long; then it says which are missing.
  std::chrono::milliseconds controlTimeout{6000};

  // The device directory. A watch is a connection for as long as an application runs.
  std::size_t directoryConnections = 64;         ///< else the process runs out of threads
  std::size_t directoryConnectionsPerUser = 16;  ///< else one user keeps all others out
  Rate directoryRequestsPerUser{20, 2};  ///< else one user keeps the authorities busy for nothing
  Rate directoryRequests{100, 20};       ///< the same, for users acting together
  std::size_t directoryCriteria = 64;    ///< else a single watch makes each change expensive
  /// Of changes that were sent but not read; then the watch is closed, since it would have a gap.
  std::size_t directoryBacklog = std::size_t{256} << 10;
  /// Two listings are at least so far apart, however fast devices come and go.
  std::chrono::milliseconds directoryInterval{20};
  /// Udev has this long, once it has recorded a device, to give the router its right to the node;
  /// a device that cannot be read yet is not listed before. Zero for who only describes devices.
  std::chrono::milliseconds udevTime{1000};
  /// After a change they are listed once more, for what was not ready yet.
  std::chrono::milliseconds directorySettling{1100};
  /// Where changes cannot be watched, the devices are listed that often while somebody wants them.
  std::chrono::milliseconds directoryPoll{2000};

  // Log lines. A reader of the log must be able to find what matters to them.
  Rate logLinesPerSession{32, 1};  ///< else one client pushes the log's history out
  Rate logLinesPerUser{512, 16};   ///< the same, for clients that reconnect again and again

  // Reports that were sent but not read yet are kept in the router's memory.
  std::size_t backlogPerClient = std::size_t{4}
                                 << 20;  ///< else one client that does not read grows without limit
  std::size_t backlogPerUser = std::size_t{16} << 20;  ///< the same, for a user's clients together
  std::size_t backlog = std::size_t{64} << 20;         ///< the same, for all clients together
  /// For a client that its device waits for; with less, fast clients would wait for the thread.
  std::size_t backlogWaitedFor = std::size_t{1} << 20;
  /// How long one client may hold up the others of such a device; then it is disconnected.
  std::chrono::seconds stallTimeout{30};

  std::size_t usagesPerFilter = 65536;  ///< else a tag dictionary fills memory for a whole session
  std::size_t devices = 1024;           ///< else removed devices stay in memory for ever

  // Configurations and recordings.
  std::size_t configurations = 1024;                       ///< else a listing has no end
  std::size_t configurationBytes = std::size_t{64} << 10;  ///< else one file fills memory
  /// A file that changed less than this before it was read is read again: another change might get
  /// the same time.
  std::chrono::milliseconds settling{50};
  /// Playing reads a file as it goes, but checking it first takes time proportional to its size.
  static constexpr std::size_t kRecordingBytes = std::size_t{64} << 20;
  /// The current line is kept in memory. A report of kReportBytes takes 192 KiB of text.
  static constexpr std::size_t kRecordingLineBytes = std::size_t{256} << 10;
  /// Else a name fills every table and message that shows it.
  static constexpr std::size_t kNameCharacters = 128;

  // Reports of a device that are read while earlier ones are delivered: a quarter of a second of
  // the fastest. Each open device keeps twice this much memory.
  static constexpr std::size_t kReadAheadReports = 2048;
  static constexpr std::size_t kReadAheadBytes = std::size_t{128} << 10;
  /// The kernel's own limit; a longer report would be cut off.
  static constexpr std::size_t kHidrawReportBytes = 16384;

  // Report descriptors. The parsed descriptor stays in memory while the device is open.
  static constexpr std::size_t kDescriptorBytes = 65535;
  static constexpr std::size_t kCollectionDepth = 64;
  /// Of one device in a listing: else the listing is as long as the descriptor wants.
  static constexpr std::size_t kListedCollections = 32;
  static constexpr std::size_t kGlobalStackDepth = 64;
  static constexpr std::uint32_t kElements = 65536;
  /// Including the report ID byte.
  static constexpr std::uint32_t kReportBytes = 65536;
  /// Values of one report, each some 30 bytes for every client: else a small report grows to
  /// hundreds of times its size.
  static constexpr std::uint32_t kReportValues = 4096;
  /// Values of all reports together; each takes memory when the device is opened.
  static constexpr std::uint32_t kValues = 8192;
};

}  // namespace router
