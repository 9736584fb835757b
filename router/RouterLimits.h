// How much of everything the router lets one client, one user, one file and one device have.
//
// Each bound names the harm that it prevents. Honest clients and real devices stay far below all
// of them; who exceeds one is refused with a reason or slowed down, and what is left out is counted
// and said.
//
// Threading: values.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace router {

/// So many at once, and from then on so many a second.
struct Rate {
  double burst = 0;
  double perSecond = 0;
};

struct RouterLimits {
  // Connections and requests. Each session has a thread and a descriptor.
  std::size_t sessions = 256;        ///< else the process runs out of threads and descriptors
  std::size_t sessionsOfUser = 128;  ///< else one user's connections keep everybody else out
  Rate startsOfUser{1000, 500};      ///< else one user's requests keep disk and processor busy
  Rate starts{2000, 1000};           ///< the same, for users who act together
  /// A request that exceeds its rate waits for its turn no longer than this; then it is refused.
  std::chrono::milliseconds startPatience{1000};
  /// A client that stops and starts again comes by a new connection, and the end of the old one may
  /// be noticed later than the new start: so long a start request waits for a place at a device
  /// that others use.
  std::chrono::milliseconds handOverGrace{250};
  /// A client that heard a recording to its end asks again when it has worked off what it was sent.
  /// One that has not by then gets the recording once more; remembered for ever, the answer would
  /// meet another process with the same number.
  std::chrono::seconds endIsRemembered{600};

  // Log lines, which whoever reads the log must be able to find their own among.
  Rate logLinesOfSession{32, 1};  ///< else one client pushes the log's history out
  Rate logLinesOfUser{512, 16};   ///< the same, for clients that connect again and again

  // Reports that were sent and not taken yet lie in the router's memory.
  std::size_t backlogOfClient = std::size_t{4}
                                << 20;  ///< else one client that does not read grows it
  std::size_t backlogOfUser = std::size_t{16} << 20;  ///< the same, for a user's clients together
  std::size_t backlog = std::size_t{64} << 20;        ///< the same, for all clients together
  /// Of a client that its device waits for; less would make the fast ones wait for the thread.
  std::size_t backlogWaitedFor = std::size_t{1} << 20;
  /// How long one client may hold up the others of such a device; then its connection ends.
  std::chrono::seconds stall{30};

  std::size_t usagesOfFilter = 65536;  ///< else a tag dictionary fills memory for a whole session
  std::size_t devices = 1024;          ///< else devices that came and went stay in memory for ever

  // Configurations and recordings.
  std::size_t configurations = 1024;                       ///< else a listing has no end
  std::size_t configurationBytes = std::size_t{64} << 10;  ///< else one file fills memory
  /// A file that changed less than this before it was read is read again: a further change might
  /// bear the same time.
  std::chrono::milliseconds settling{50};
  /// Playing reads a file as it goes, but checking it beforehand takes time that grows with it.
  static constexpr std::size_t kRecordingBytes = std::size_t{64} << 20;
  /// The one line that is read lies in memory. A report of kReportBytes takes 192 KiB of text.
  static constexpr std::size_t kRecordingLineBytes = std::size_t{256} << 10;
  /// Else a name fills every table and message that it stands in.
  static constexpr std::size_t kNameCharacters = 128;

  // Report descriptors. What is parsed stays in memory while the device is open.
  static constexpr std::size_t kDescriptorBytes = 65535;
  static constexpr std::size_t kCollectionDepth = 64;
  static constexpr std::size_t kGlobalStackDepth = 64;
  static constexpr std::uint32_t kElements = 65536;
  /// With the report ID byte.
  static constexpr std::uint32_t kReportBytes = 65536;
  /// Values of one report, each of some 30 bytes for every client: else a small report becomes
  /// hundreds of times its size.
  static constexpr std::uint32_t kReportValues = 4096;
  /// Values of all reports together, each of which is planned for when the device is opened.
  static constexpr std::uint32_t kValues = 8192;
};

}  // namespace router
