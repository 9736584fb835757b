// SPDX-License-Identifier: Apache-2.0

// The excerpt of a system log compared with the minimum, which is reading the log, and with the
// usual tool for finding a word in a file, which keeps nothing.
#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "WLHIDAccess/WLHIDEventRouterLogFileProvider.h"
#include "bench/Bench.h"
#include "bench/Router.h"
#include "bench/SystemLog.h"
#include "platform/services/SystemRoot.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLogBytes = std::size_t{512} << 20;
constexpr int kRounds = 9;
constexpr double kBytesInMiB = 1024.0 * 1024.0;

/// A system root of the benchmark's own, in use while the object exists.
class Root {
 public:
  Root() {
    std::string pattern = (fs::temp_directory_path() / "wlhid-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
      throw std::runtime_error("cannot make a temporary directory");
    path_ = pattern;
    platform::SystemRoot::setCurrent(platform::SystemRoot(path_));
  }
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;
  ~Root() {
    platform::SystemRoot::resetCurrent();
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  [[nodiscard]] const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

/// The way a diagnostic report gets it: through the module's file.
std::shared_ptr<platform::NSData> excerpt() {
  std::shared_ptr<platform::NSData> result;
  const auto take = [&result](auto error, auto, auto data, bool) {
    if (error) throw std::runtime_error(error->description());
    result = std::move(data);
  };
  WLHIDEventRouterLogFileProvider::init()->provideFilesWithCompletionHandler(
      [&](auto, auto files) { files.at(0)->source()(files.at(0), take); });
  return result;
}

/// Reads the file through one buffer. The sum keeps the compiler from removing the reads.
unsigned readInChunks(const fs::path& path) {
  constexpr std::size_t chunk = std::size_t{256} * 1024;
  const std::unique_ptr<unsigned char[]> buffer(new unsigned char[chunk]);
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) throw std::runtime_error("cannot open " + path.string());
  unsigned sum = 0;
  ssize_t got = 0;
  while ((got = ::read(file, buffer.get(), chunk)) > 0) sum += buffer[0];
  ::close(file);
  if (got < 0) throw std::runtime_error("cannot read " + path.string());
  return sum;
}

/// Its output goes to a pipe: without a reader, the tool would stop at the first matching line.
void runGrep(const fs::path& path) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  const std::string file = path.string();
  const char* const arguments[] = {"grep",       "-F",   "-c", "com.quillmar.hideventrouter",
                                   file.c_str(), nullptr};
  // The plain locale is the one with the least work.
  const char* const environment[] = {"LC_ALL=C", "PATH=/usr/bin:/bin", nullptr};
  pid_t child = -1;
  const int failure =
      ::posix_spawnp(&child, "grep", &actions, nullptr, const_cast<char* const*>(arguments),
                     const_cast<char* const*>(environment));
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  char count[32];
  const ssize_t got = failure == 0 ? ::read(ends[0], count, sizeof count) : -1;
  ::close(ends[0]);
  int status = -1;
  if (failure == 0) ::waitpid(child, &status, 0);
  if (got <= 0 || status != 0) throw std::runtime_error("grep did not run");
}

template <class Body>
double milliseconds(const Body& body) {
  const auto start = monotonicNanoseconds();
  body();
  return static_cast<double>(monotonicNanoseconds() - start) / 1e6;
}

struct Times {
  double excerpt = 0;
  double read = 0;
  double grep = 0;
};

/// Medians; the three alternate, so that all see the machine in the same state.
Times measure(const SystemLog& log, bool withGrep) {
  std::vector<double> excerpts;
  std::vector<double> reads;
  std::vector<double> greps{0};
  volatile unsigned seen = readInChunks(log.path());  // the file is in the page cache from here on
  for (int round = 0; round < kRounds; ++round) {
    reads.push_back(milliseconds([&] { seen = readInChunks(log.path()); }));
    excerpts.push_back(milliseconds([&] { seen = static_cast<unsigned>(excerpt()->length()); }));
    if (withGrep) greps.push_back(milliseconds([&] { runGrep(log.path()); }));
  }
  if (withGrep) greps.erase(greps.begin());
  return {median(excerpts), median(reads), median(greps)};
}

/// A line of /proc/self/status, in MiB.
double memory(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(name + ":")) return std::stod(line.substr(name.size() + 1)) / 1024.0;
  throw std::runtime_error("cannot read " + name);
}

struct Peak {
  double grown = 0;  ///< MiB
  double output = 0;
};

Peak peakOfThisProcess() {
  std::ofstream("/proc/self/clear_refs") << "5";  // resets the peak
  const double before = memory("VmRSS");
  const auto data = excerpt();
  return {memory("VmHWM") - before, static_cast<double>(data->length()) / kBytesInMiB};
}

/// In a process of its own, so that earlier measurements are not part of the figure.
Peak measurePeak() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  const pid_t child = ::fork();
  if (child == 0) {
    try {
      const Peak peak = peakOfThisProcess();
      ::_exit(::write(ends[1], &peak, sizeof peak) == sizeof peak ? 0 : 1);
    } catch (...) {
      ::_exit(1);
    }
  }
  ::close(ends[1]);
  Peak peak;
  const bool whole = ::read(ends[0], &peak, sizeof peak) == sizeof peak;
  ::close(ends[0]);
  if (child > 0) ::waitpid(child, nullptr, 0);
  if (!whole) throw std::runtime_error("cannot measure the memory peak");
  return peak;
}

struct Row {
  const char* group;
  unsigned keptPerMille;
  double target;
  bool withGrep;
};

constexpr Row kRows[] = {
    {"log.kept01", 1, 1.7, false}, {"log.kept1", 10, 1.7, true}, {"log.kept50", 500, 4.0, false}};

}  // namespace

void measureLog(Report& report) {
  const Root root;
  Peak worst;
  for (const Row& row : kRows) {
    const SystemLog log(root.path(), kLogBytes, row.keptPerMille);
    const Times times = measure(log, row.withGrep);
    report.add({row.group,
                "ratio",
                times.excerpt / times.read,
                row.target,
                false,
                {"excerpt_ms", times.excerpt},
                {"read_ms", times.read}});
    if (row.withGrep) {
      report.add({row.group,
                  "vs_grep",
                  times.excerpt / times.grep,
                  1.0,
                  false,
                  {"excerpt_ms", times.excerpt},
                  {"grep_ms", times.grep}});
    }
    const Peak peak = measurePeak();
    if (peak.grown - peak.output > worst.grown - worst.output) worst = peak;
  }
  report.add({"log",
              "peak_mib_over_output",
              worst.grown - worst.output,
              16.0,
              false,
              {"peak_mib", worst.grown},
              {"output_mib", worst.output}});
}

}  // namespace bench
