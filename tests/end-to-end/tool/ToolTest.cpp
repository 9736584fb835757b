// SPDX-License-Identifier: Apache-2.0

#include "ToolTest.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace test {

namespace fs = std::filesystem;

namespace {

fs::path pathFromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr)
    throw std::runtime_error(std::string(name) + " is not set; run this test through ctest");
  return value;
}

fs::path makeTemporaryDirectory() {
  std::string name = fs::temp_directory_path() / "wlhid-test-XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
  return name;
}

bool mentions(const std::string& zeroSeparated, const std::string& text) {
  return zeroSeparated.find(text) != std::string::npos;
}

/// Empty for a process that ends meanwhile: the kernel then rejects reads of even an open file.
std::string readProcessFile(const fs::path& path) {
  try {
    return readFile(path);
  } catch (const std::ios_base::failure&) {
    return {};
  }
}

/// Whether the process has ended but has not been reaped.
bool isZombie(const fs::path& process) {
  const std::string stat = readProcessFile(process / "stat");
  const std::size_t end = stat.rfind(')');
  return end == std::string::npos || stat.size() < end + 3 || stat[end + 2] == 'Z';
}

/// True if the process has ended by the deadline.
bool waitForEnd(pid_t pid, std::chrono::steady_clock::time_point deadline) {
  const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (descriptor < 0) return true;
  pollfd ended{descriptor, POLLIN, 0};
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  const int ready = ::poll(&ended, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
  ::close(descriptor);
  return ready == 1;
}

}  // namespace

fs::path sourcePath(std::string_view relative) {
  return pathFromEnvironment("WLHID_SOURCE_DIR") / relative;
}
fs::path builtPath(std::string_view relative) {
  return pathFromEnvironment("WLHID_BINARY_DIR") / relative;
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const fs::path& path, std::string_view text) {
  fs::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
}

std::vector<nlohmann::json> jsonLines(const std::string& text) {
  std::vector<nlohmann::json> lines;
  for (const std::string& line : linesOf(text)) lines.push_back(nlohmann::json::parse(line));
  return lines;
}

std::vector<pid_t> processesOfRoot(const fs::path& root) {
  std::vector<pid_t> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    const bool ours = mentions(readProcessFile(entry.path() / "cmdline"), root) ||
                      mentions(readProcessFile(entry.path() / "environ"), root);
    const pid_t pid = static_cast<pid_t>(std::stol(name));
    if (ours && pid != ::getpid() && !isZombie(entry.path())) found.push_back(pid);
  }
  return found;
}

ToolTest::ToolTest() : directory(makeTemporaryDirectory()), root(directory / "root") {}

void ToolTest::TearDown() {
  static_cast<void>(runTool({"uninstall", "--authorize", "allow"}));
  for (const pid_t daemon : jobDaemons())
    ::kill(daemon, SIGTERM);  // it would wait a while for more work
  expectNoProcessLeft();
  std::error_code ignored;
  fs::remove_all(directory, ignored);
}

std::vector<pid_t> ToolTest::jobDaemons() const {
  std::vector<pid_t> found;
  for (const pid_t pid : processesOfRoot(root)) {
    const std::string command =
        readProcessFile(fs::path("/proc") / std::to_string(pid) / "cmdline");
    if (command.find("wlhid-jobd") != std::string::npos) found.push_back(pid);
  }
  return found;
}

void ToolTest::expectNoProcessLeft() const {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  for (const pid_t pid : processesOfRoot(directory)) {
    EXPECT_TRUE(waitForEnd(pid, deadline))
        << "left running: " << pid << " "
        << readProcessFile(fs::path("/proc") / std::to_string(pid) / "cmdline");
  }
}

std::vector<std::string> ToolTest::wlhid(const std::vector<std::string>& arguments) const {
  std::vector<std::string> command{builtPath("wlhid"), "--root", root};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

ProcessOptions ToolTest::options() const {
  return {
      {{"TMPDIR", directory}, {"XDG_RUNTIME_DIR", ""}, {"WLHID_ROOT", ""}, {"KQ_LOG_LEVEL", ""}},
      std::nullopt};
}

Outcome ToolTest::runTool(const std::vector<std::string>& arguments) const {
  return run(wlhid(arguments), options());
}

Outcome ToolTest::runToolOnTerminal(const std::vector<std::string>& arguments, int columns) const {
  std::string line = "stty -opost cols " + std::to_string(columns) + ";";
  for (const std::string& word : wlhid(arguments)) line += " " + inQuotes(word);
  ProcessOptions terminal = options();
  terminal.environment.emplace_back("TERM", "xterm");
  terminal.environment.emplace_back("NO_COLOR", "1");
  return run({"script", "-qefc", line, "/dev/null"}, terminal);
}

void ToolTest::install() {
  const Outcome outcome = runTool({"install", "--authorize", "allow"});
  ASSERT_EQ(outcome.status, 0) << outcome.err;
}

std::string ToolTest::addDevice(std::string_view recording, const std::vector<std::string>& more) {
  std::vector<std::string> arguments{"devices", "add", sourcePath("recordings") / recording};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const Outcome outcome = runTool(arguments);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  return outcome.out.substr(0, outcome.out.find('\n'));
}

std::string inQuotes(std::string_view word) {
  std::string text = "'";
  for (const char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return text + "'";
}

testing::AssertionResult isHarmless(std::string_view text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const auto next = static_cast<unsigned char>(at + 1 < text.size() ? text[at + 1] : 0);
    const auto third = static_cast<unsigned char>(at + 2 < text.size() ? text[at + 2] : 0);
    const bool control = (byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7f;
    const bool secondControl = byte == 0xc2 && next < 0xa0;
    const bool format =
        byte == 0xe2 &&
        ((next == 0x80 && ((third >= 0x8b && third <= 0x8f) || (third >= 0xa8 && third <= 0xae))) ||
         (next == 0x81 && third >= 0xa0 && third <= 0xaf));
    if (control || secondControl || format)
      return testing::AssertionFailure() << "byte " << int{byte} << " at " << at << " of " << text;
  }
  return testing::AssertionSuccess();
}

testing::AssertionResult isRefusal(const Outcome& outcome, int status, std::string_view text) {
  const auto lines = linesOf(outcome.err);
  const bool oneLine = lines.size() == 1 && lines[0].starts_with("wlhid: ");
  const bool says = outcome.err.find(text) != std::string::npos;
  if (outcome.status == status && outcome.out.empty() && oneLine && says)
    return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << "exit status " << outcome.status << " (expected " << status << ")\nstandard output:\n"
         << outcome.out << "\nstandard error (expected one line with \"" << text << "\"):\n"
         << outcome.err;
}

}  // namespace test
