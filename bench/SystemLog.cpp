// SPDX-License-Identifier: Apache-2.0

#include "bench/SystemLog.h"

#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/services/SystemRoot.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kProcesses[] = {"kernel", "com.apple.xpc.launchd", "WindowServer",
                                           "sandboxd", "mDNSResponder"};
constexpr std::string_view kWords[] = {
    "assertion", "of",      "service", "exited", "with", "abnormal", "code",           "1,",
    "pushing",   "respawn", "out",     "by",     "10",   "seconds",  "(0x7fff5fbff8)", "device",
    "request",   "failed:", "queue"};

/// Entries one after another, all drawn from one sequence of random numbers.
class Writer {
 public:
  explicit Writer(unsigned keptPerMille) : keptPerMille_(keptPerMille) {}

  void appendEntry(std::string& text) {
    second_ += draw(3);
    text += "Nov " + std::to_string(10 + second_ / 86400 % 20) + ' ';
    appendTime(text);
    text += " workstation ";
    text += draw(1000) < keptPerMille_ ? "com.quillmar.hideventrouter" : kProcesses[draw(5)];
    text += '[' + std::to_string(100 + draw(30000)) + "]: ";
    appendWords(text, 5 + draw(16));
    if (draw(10) == 0) {
      for (auto lines = 1 + draw(3); lines > 0; --lines) {
        text += '\t';
        appendWords(text, 4 + draw(10));
      }
    }
  }

 private:
  std::uint32_t draw(std::uint32_t bound) {
    state_ = state_ * 6364136223846793005U + 1442695040888963407U;
    return static_cast<std::uint32_t>((state_ >> 32) * bound >> 32);
  }

  void appendTime(std::string& text) const {
    for (const unsigned part : {second_ / 3600 % 24, second_ / 60 % 60, second_ % 60}) {
      if (text.back() != ' ') text += ':';
      text += static_cast<char>('0' + part / 10);
      text += static_cast<char>('0' + part % 10);
    }
  }

  void appendWords(std::string& text, std::uint32_t count) {
    for (; count > 0; --count) {
      text += kWords[draw(std::size(kWords))];
      text += count > 1 ? ' ' : '\n';
    }
  }

  const unsigned keptPerMille_;
  unsigned second_ = 0;
  std::uint64_t state_ = 1;
};

void requireRoom(const fs::path& directory, std::size_t bytes) {
  constexpr std::size_t reserve = std::size_t{256} * 1024 * 1024;
  if (fs::space(directory).available < bytes + reserve)
    throw std::runtime_error("no room in " + directory.string() + " for a log of " +
                             std::to_string(bytes >> 20) + " MiB");
}

}  // namespace

SystemLog::SystemLog(const fs::path& root, std::size_t bytes, unsigned keptPerMille)
    : path_(platform::SystemRoot(root).systemLog()) {
  fs::create_directories(path_.parent_path());
  requireRoom(path_.parent_path(), bytes);
  std::ofstream out(path_, std::ios::binary);
  Writer writer(keptPerMille);
  std::string text;
  for (std::size_t written = 0; written < bytes; written += text.size()) {
    text.clear();
    while (text.size() < std::size_t{1} << 20) writer.appendEntry(text);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
  }
  out.close();
  if (!out) throw std::runtime_error("cannot write " + path_.string());
}

SystemLog::~SystemLog() {
  std::error_code ignored;
  fs::remove(path_, ignored);
}

}  // namespace bench
