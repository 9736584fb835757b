// SPDX-License-Identifier: Apache-2.0

#include "Process.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace test {

namespace {

std::pair<int, int> makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0)
    throw std::system_error(errno, std::generic_category(), "pipe2");
  return {ends[0], ends[1]};
}

std::vector<std::string> environmentWith(
    const std::vector<std::pair<std::string, std::string>>& changes) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const std::string_view name = text.substr(0, text.find('='));
    bool changed = false;
    for (const auto& change : changes) changed = changed || change.first == name;
    if (!changed) result.emplace_back(text);
  }
  for (const auto& [name, value] : changes) {
    if (!value.empty()) result.push_back(name + "=" + value);
  }
  return result;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// Spawns in a new session with default signal dispositions, so that the child has no terminal and
/// ignores no signal, however the test was started: a shell makes its background jobs ignore SIGINT
/// and SIGQUIT.
pid_t spawn(std::vector<std::string> command, std::vector<std::string> environment, int out,
            const char* outPath, int err) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  if (outPath != nullptr) {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath, O_WRONLY, 0);
  } else {
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
  }
  posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t all;
  sigfillset(&all);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
  pid_t pid = -1;
  const auto argv = pointersTo(command);
  const auto envp = pointersTo(environment);
  const int failure =
      ::posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), envp.data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw std::system_error(failure, std::generic_category(), command.front());
  return pid;
}

void waitForEnd(pid_t pid, std::chrono::steady_clock::time_point deadline) {
  const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "pidfd_open");
  pollfd ended{descriptor, POLLIN, 0};
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  const int ready = ::poll(&ended, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
  ::close(descriptor);
  if (ready == 0) throw std::runtime_error("the program closed its output and did not end");
}

}  // namespace

Process::Process(const std::vector<std::string>& command, const ProcessOptions& options) {
  const auto [outRead, outWrite] = makePipe();
  const auto [errRead, errWrite] = makePipe();
  out_.descriptor = outRead;
  err_.descriptor = errRead;
  const char* outPath = options.standardOutput ? options.standardOutput->c_str() : nullptr;
  pid_ = spawn(command, environmentWith(options.environment), outWrite, outPath, errWrite);
  ::close(outWrite);
  ::close(errWrite);
}

Process::~Process() {
  out_.close();
  err_.close();
  if (status_) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

void Process::Stream::close() {
  if (descriptor >= 0) ::close(descriptor);
  descriptor = -1;
}

std::vector<std::string> Process::outputLines() const {
  return linesOf(out_.text);
}

bool Process::readSome(std::chrono::steady_clock::time_point deadline) {
  std::array<pollfd, 2> set{pollfd{out_.descriptor, POLLIN, 0}, pollfd{err_.descriptor, POLLIN, 0}};
  if (set[0].fd < 0 && set[1].fd < 0) return false;
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  const int ready =
      ::poll(set.data(), set.size(), static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
  if (ready < 0 && errno == EINTR) return true;
  if (ready <= 0) {
    throw std::runtime_error("nothing more came in time; standard output so far:\n" + out_.text +
                             "\nstandard error so far:\n" + err_.text);
  }
  std::array<Stream*, 2> streams{&out_, &err_};
  for (std::size_t i = 0; i < set.size(); ++i) {
    if (set[i].revents == 0) continue;
    std::array<char, 65536> buffer;
    const ssize_t count = ::read(set[i].fd, buffer.data(), buffer.size());
    if (count > 0) {
      streams[i]->text.append(buffer.data(), static_cast<std::size_t>(count));
    } else {
      streams[i]->close();
    }
  }
  return true;
}

void Process::waitForOutput(const std::function<bool(const std::string&)>& enough) {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (!enough(out_.text)) {
    if (!readSome(deadline)) {
      throw std::runtime_error("the program ended first; standard output:\n" + out_.text +
                               "\nstandard error:\n" + err_.text);
    }
  }
}

void Process::waitForOutputContaining(std::string_view text) {
  waitForOutput(
      [text](const std::string& output) { return output.find(text) != std::string::npos; });
}

void Process::waitUntilWritingIsStuck() const {
  const std::string stuck = std::to_string(SYS_write) + " 0x1 ";
  const std::filesystem::path tasks =
      std::filesystem::path("/proc") / std::to_string(pid_) / "task";
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (std::chrono::steady_clock::now() < deadline) {
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
      std::ifstream in(task.path() / "syscall");
      std::string call;
      if (std::getline(in, call) && call.starts_with(stuck)) return;
    }
    ::sched_yield();
  }
  throw std::runtime_error("the program did not get stuck in writing");
}

void Process::closeOutput() {
  out_.close();
}

void Process::signal(int number) const {
  ::kill(pid_, number);
}

int Process::wait() {
  if (status_) return *status_;
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (readSome(deadline)) {
  }
  waitForEnd(pid_, deadline);
  int raw = 0;
  while (::waitpid(pid_, &raw, 0) < 0 && errno == EINTR) {
  }
  status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  return *status_;
}

Outcome run(const std::vector<std::string>& command, const ProcessOptions& options) {
  Process process(command, options);
  const int status = process.wait();
  return {status, process.output(), process.errorOutput()};
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

}  // namespace test
