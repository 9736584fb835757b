// SPDX-License-Identifier: Apache-2.0

#include "TerminalEmulator.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "ToolTest.h"

namespace test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kSettings =
    "set -g status off\n"
    "set -g default-terminal tmux-256color\n"
    "set -sg escape-time 0\n";

/// A shell's line: the command, with the terminal's settings before and after it in files.
std::string lineFor(const std::filesystem::path& directory,
                    const std::vector<std::string>& command) {
  const auto file = [&](const char* name) { return inQuotes((directory / name).string()); };
  std::string words;
  for (const std::string& word : command) words += " " + inQuotes(word);
  // The trap: Ctrl-C ends the command, not this shell.
  return "trap : INT; stty -g >" + file("settings-before") +
         "; echo before; sh -c 'echo $$ >\"$0\"; exec \"$@\"' " + file("process") + words +
         "; status=$?; stty -g >" + file("settings-after") + "; echo \"ended $status\"; exec cat";
}

}  // namespace

TerminalEmulator::TerminalEmulator(std::filesystem::path directory,
                                   const std::vector<std::string>& command, ProcessOptions options,
                                   Size size)
    : directory_(std::move(directory)), options_(std::move(options)) {
  options_.environment.emplace_back("TMUX", "");
  writeFile(directory_ / "settings", kSettings);
  const std::filesystem::path changes = directory_ / "changes";
  if (::mkfifo(changes.c_str(), 0600) != 0) throw std::runtime_error("cannot make a pipe");
  changes_ = ::open(changes.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  static_cast<void>(tmux({"new-session", "-d", "-x", std::to_string(size.columns), "-y",
                          std::to_string(size.rows), "sh", "-c", lineFor(directory_, command)}));
  static_cast<void>(tmux({"pipe-pane", "-O", "exec cat >" + inQuotes(changes.string())}));
}

TerminalEmulator::~TerminalEmulator() {
  try {
    static_cast<void>(tmux({"kill-server"}));
  } catch (const std::exception&) {
    // It has ended by itself.
  }
  ::close(changes_);
}

std::string TerminalEmulator::tmux(const std::vector<std::string>& arguments) const {
  std::vector<std::string> command{
      "tmux", "-u", "-S", directory_ / "socket", "-f", directory_ / "settings"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const Outcome outcome = run(command, options_);
  if (outcome.status != 0) throw std::runtime_error("tmux: " + outcome.err + outcome.out);
  return outcome.out;
}

void TerminalEmulator::type(const std::string& key) const {
  static_cast<void>(tmux({"send-keys", key}));
}

void TerminalEmulator::resize(Size size) const {
  static_cast<void>(
      tmux({"resize-window", "-x", std::to_string(size.columns), "-y", std::to_string(size.rows)}));
}

std::string TerminalEmulator::screen() const {
  return tmux({"capture-pane", "-p"});
}

std::string TerminalEmulator::styledScreen() const {
  return tmux({"capture-pane", "-p", "-e"});
}

void TerminalEmulator::awaitOutput() const {
  pollfd event{changes_, POLLIN, 0};
  ::poll(&event, 1, 1000);  // what came before the pipe was there is on the screen by then
  std::array<char, 65536> buffer{};
  while (::read(changes_, buffer.data(), buffer.size()) > 0) {
  }
}

std::string TerminalEmulator::awaitScreen(const std::function<std::string()>& read,
                                          const std::function<bool(const std::string&)>& isWanted) {
  const auto deadline = Clock::now() + kTimeout;
  while (true) {
    std::string shown = read();
    if (isWanted(shown)) return shown;
    if (Clock::now() > deadline)
      throw std::runtime_error("the screen does not become what is expected:\n" + shown);
    awaitOutput();
  }
}

std::string TerminalEmulator::await(const std::function<bool(const std::string&)>& isWanted) {
  return awaitScreen([this] { return screen(); }, isWanted);
}

std::string TerminalEmulator::awaitStyled(const std::function<bool(const std::string&)>& isWanted) {
  return awaitScreen([this] { return styledScreen(); }, isWanted);
}

std::string TerminalEmulator::await(std::string_view text) {
  return await([text](const std::string& shown) { return shown.find(text) != shown.npos; });
}

std::string TerminalEmulator::awaitGone(std::string_view text) {
  return await([text](const std::string& shown) { return shown.find(text) == shown.npos; });
}

pid_t TerminalEmulator::process() const {
  return static_cast<pid_t>(std::stol(readFile(directory_ / "process")));
}

bool TerminalEmulator::isRestored() const {
  return tmux({"display-message", "-p", "#{alternate_on} #{cursor_flag}"}) == "0 1\n" &&
         readFile(directory_ / "settings-before") == readFile(directory_ / "settings-after") &&
         screen().starts_with("before\n");
}

}  // namespace test
