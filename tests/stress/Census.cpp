// SPDX-License-Identifier: Apache-2.0

#include "tests/stress/Census.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>
#include <string_view>

#include "platform/services/FileDescriptor.h"

namespace stress {
namespace {

namespace fs = std::filesystem;

fs::path proc(pid_t process) {
  return "/proc/" + std::to_string(process);
}

std::uint64_t entries(const fs::path& directory) {
  std::error_code error;
  std::uint64_t count = 0;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error))
    ++count;
  return count;
}

/// Whatever can be read of a file whose process may end at any moment.
std::string contents(const fs::path& file) {
  std::string text;
  const platform::FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 4096> buffer;
  for (ssize_t got = 0;
       descriptor && (got = ::read(descriptor.get(), buffer.data(), buffer.size())) > 0;)
    text.append(buffer.data(), static_cast<std::size_t>(got));
  return text;
}

/// The number in the line of /proc/…/status that begins with `key`.
std::uint64_t statusNumber(pid_t process, std::string_view key) {
  std::istringstream in(contents(proc(process) / "status"));
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with(key)) continue;
    std::istringstream number(line.substr(key.size()));
    std::uint64_t value = 0;
    number >> value;
    return value;
  }
  return 0;
}

bool isZombie(pid_t process) {
  const std::string stat = contents(proc(process) / "stat");
  const auto name = stat.rfind(") ");
  return name == std::string::npos || stat[name + 2] == 'Z' || stat[name + 2] == 'X';
}

bool names(const std::string& block, const std::string& root) {
  std::istringstream in(block);
  for (std::string text; std::getline(in, text, '\0');) {
    if (text == root || text.starts_with(root + "/")) return true;
  }
  return false;
}

}  // namespace

Census Census::of(pid_t process) {
  return {entries(proc(process) / "fd"), statusNumber(process, "Threads:"),
          statusNumber(process, "VmRSS:")};
}

std::string Census::text() const {
  return std::to_string(descriptors) + " descriptors, " + std::to_string(threads) + " threads, " +
         std::to_string(residentKiB) + " KiB";
}

void Census::lower(const Census& other) {
  descriptors = std::min(descriptors, other.descriptors);
  threads = std::min(threads, other.threads);
  residentKiB = std::min(residentKiB, other.residentKiB);
}

std::vector<pid_t> processesOfRoot(const fs::path& root) {
  std::vector<pid_t> found;
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename();
    pid_t process = 0;
    const auto [stop, problem] = std::from_chars(name.data(), name.data() + name.size(), process);
    if (problem != std::errc() || stop != name.data() + name.size()) continue;
    if (names(contents(entry->path() / "cmdline"), root) && !isZombie(process))
      found.push_back(process);
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::vector<std::string> filesBelow(const fs::path& directory) {
  std::vector<std::string> found;
  std::error_code error;
  for (fs::recursive_directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error))
    found.push_back(entry->path().lexically_relative(directory));
  std::sort(found.begin(), found.end());
  return found;
}

bool isSanitized() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  return true;
#else
  return false;
#endif
#else
  return false;
#endif
}

}  // namespace stress
