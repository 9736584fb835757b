// SPDX-License-Identifier: Apache-2.0

// A helper for tests: takes its sockets by the protocol for passing sockets and answers lines.
//
//   echo TEXT     TEXT                          log TEXT     TEXT on standard error, then "ok"
//   pid           its process                   exit N       ends with status N
//   env           its environment, one line     abort        ends by a signal
//   fds           its open descriptors          deaf         ignores SIGTERM from now on
//   exe           what it runs from             flood N      N lines on standard output, then "ok"
//   service       the service connected to        limits       what it may not do
//
// On SIGTERM it sends "bye" on each connection and exits cleanly.
#include <dirent.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Peer {
  int socket;
  std::string service;
  std::string rest;
};

struct Helper {
  std::vector<pollfd> listeners;
  std::vector<std::string> names;
  std::vector<Peer> peers;
  int signals = -1;
};

void say(const Peer& peer, const std::string& text) {
  const std::string line = text + "\n";
  if (::send(peer.socket, line.data(), line.size(), MSG_NOSIGNAL) < 0) return;
}

std::string openDescriptors() {
  std::string list;
  for (int fd = 0; fd < 1024; ++fd) {
    std::array<char, 256> target{};
    if (::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target.data(),
                   target.size() - 1) < 0)
      continue;
    list += (list.empty() ? "" : " ") + std::to_string(fd) + "=" + target.data();
  }
  return list;
}

std::string wholeEnvironment() {
  std::string list;
  for (char** entry = environ; *entry != nullptr; ++entry)
    list += (list.empty() ? "" : "|") + std::string(*entry);
  return list;
}

std::string ownExecutable() {
  std::array<char, 256> target{};
  return ::readlink("/proc/self/exe", target.data(), target.size() - 1) < 0 ? "?" : target.data();
}

std::string limits() {
  rlimit core{1, 1};
  ::getrlimit(RLIMIT_CORE, &core);
  return "core " + std::to_string(core.rlim_cur) + " of " + std::to_string(core.rlim_max) +
         ", no_new_privs " + std::to_string(::prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0));
}

std::string flood(int lines) {
  for (int i = 0; i < lines; ++i) std::cout << "line " << i << " of a flood\n";
  std::cout.flush();
  return "ok";
}

std::string logLine(const std::string& text) {
  std::cerr << text << std::endl;
  return "ok";
}

std::string answer(const Peer& peer, const std::string& line) {
  const auto blank = line.find(' ');
  const std::string verb = line.substr(0, blank);
  const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
  if (verb == "echo") return rest;
  if (verb == "pid") return std::to_string(::getpid());
  if (verb == "env") return wholeEnvironment();
  if (verb == "fds") return openDescriptors();
  if (verb == "exe") return ownExecutable();
  if (verb == "service") return peer.service;
  if (verb == "limits") return limits();
  if (verb == "log") return logLine(rest);
  if (verb == "flood") return flood(std::atoi(rest.c_str()));
  if (verb == "exit") ::_exit(std::atoi(rest.c_str()));
  if (verb == "abort") ::raise(SIGKILL);
  return "?";
}

void takeSockets(Helper& helper) {
  const char* process = std::getenv("LISTEN_PID");
  const char* count = std::getenv("LISTEN_FDS");
  const char* names = std::getenv("LISTEN_FDNAMES");
  if (process == nullptr || count == nullptr || names == nullptr ||
      std::atoi(process) != ::getpid())
    std::exit(78);
  std::istringstream list(names);
  for (int i = 0; i < std::atoi(count); ++i) {
    std::string name;
    std::getline(list, name, ':');
    if (name == ".root") continue;  // the system root's directory
    helper.listeners.push_back({3 + i, POLLIN, 0});
    helper.names.push_back(name);
  }
}

void blockSignals(Helper& helper) {
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGTERM);
  ::sigprocmask(SIG_BLOCK, &mask, nullptr);
  helper.signals = ::signalfd(-1, &mask, SFD_CLOEXEC);
}

/// False when the peer has closed the connection.
bool serve(Helper& helper, Peer& peer) {
  std::array<char, 4096> buffer{};
  const ssize_t got = ::recv(peer.socket, buffer.data(), buffer.size(), 0);
  if (got <= 0) return false;
  peer.rest.append(buffer.data(), static_cast<std::size_t>(got));
  for (auto end = peer.rest.find('\n'); end != std::string::npos; end = peer.rest.find('\n')) {
    const std::string line = peer.rest.substr(0, end);
    peer.rest.erase(0, end + 1);
    if (line == "deaf") helper.signals = -1;
    say(peer, answer(peer, line));
  }
  return true;
}

[[noreturn]] void sayFarewell(const Helper& helper) {
  for (const auto& peer : helper.peers) say(peer, "bye");
  std::exit(0);
}

void turn(Helper& helper) {
  std::vector<pollfd> watched = helper.listeners;
  watched.push_back({helper.signals, POLLIN, 0});
  for (const auto& peer : helper.peers) watched.push_back({peer.socket, POLLIN, 0});
  if (::poll(watched.data(), watched.size(), -1) < 0) return;
  const std::size_t count = helper.listeners.size();
  if (watched[count].revents != 0) sayFarewell(helper);
  for (std::size_t i = helper.peers.size(); i-- > 0;) {
    if (watched[count + 1 + i].revents == 0 || serve(helper, helper.peers[i])) continue;
    ::close(helper.peers[i].socket);
    helper.peers.erase(helper.peers.begin() + static_cast<std::ptrdiff_t>(i));
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (watched[i].revents == 0) continue;
    const int socket = ::accept4(watched[i].fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket >= 0) helper.peers.push_back({socket, helper.names[i], {}});
  }
}

}  // namespace

int main() {
  Helper helper;
  takeSockets(helper);
  blockSignals(helper);
  for (;;) turn(helper);
}
