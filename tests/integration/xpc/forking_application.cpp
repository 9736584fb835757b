// SPDX-License-Identifier: Apache-2.0

// An application with a service and two clients in it that forks, and checks that everything still
// works once its child has ended. The argument says what the child does. Exits with 0 if everything
// works.
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>

#include "tests/support/XPCPeers.h"

using namespace platform;
using namespace testsupport;

namespace {

constexpr unsigned kLongestChild = 30;  // seconds; a child that hangs is killed by SIGALRM

/// Queue threads have all signals blocked, and so does a child that one of them forks.
void limitTime() {
  sigset_t alarms;
  ::sigemptyset(&alarms);
  ::sigaddset(&alarms, SIGALRM);
  ::pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
  ::alarm(kLongestChild);
}

/// Two ends, of which one is destroyed by exit(), the other by a return from main.
struct Ends {
  End& kept;
  End& local;
  std::shared_ptr<Talk> keptProxy;
  std::shared_ptr<Service> service;
};

/// What the service does with a note and with a new connection, once set.
std::atomic<const std::function<void(std::uint64_t)>*> onNote{nullptr};
std::atomic<const std::function<void()>*> onConnection{nullptr};

void prepare(End& end) {
  end.talker->onNote = [](std::uint64_t number) {
    if (const auto* const hook = onNote.load()) (*hook)(number);
  };
  if (const auto* const hook = onConnection.load()) (*hook)();
}

int failure(const std::string& what) {
  std::cerr << what << '\n';
  return 1;
}

/// The status of a child that was forked while a thread of its parent held something that nobody in
/// the child can release.
constexpr int kForkedTooSoon = 6;

/// Its exit status; 128 if it did not exit normally.
int statusOf(pid_t child) {
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

bool isWell(int status) {
  if (status != 0) std::cerr << "the child ended with status " << status << '\n';
  return status == 0;
}

bool endsWell(pid_t child) {
  return isWell(statusOf(child));
}

std::shared_ptr<NSXPCConnection> connectionTo(const std::string& name) {
  return NSXPCConnection::initWithMachServiceName_options(str(name), 0);
}

bool connects(End& end, Service& service, std::size_t index, const std::string& name) {
  end.configure(connectionTo(name));
  end.connection->resume();
  end.proxy()->note(index);
  const auto accepted = service.end(index);
  return accepted && accepted->log.waitFor("note " + std::to_string(index));
}

/// Whether messages pass both ways and nothing else was reported.
bool goesOn(End& end, const std::shared_ptr<End>& accepted, std::uint64_t number) {
  const std::string line = "note " + std::to_string(number);
  end.proxy()->note(number);
  accepted->proxy()->note(number);
  if (!accepted->log.waitFor(line) || !end.log.waitFor(line)) return false;
  for (const EventLog* log : {&end.log, &accepted->log}) {
    for (const std::string& heard : log->lines()) {
      if (heard.starts_with("note ")) continue;
      std::cerr << "the parent heard: " << heard << '\n';
      return false;
    }
  }
  return true;
}

void send(const Ends& ends) {
  ends.keptProxy->note(1000);
  ends.keptProxy->ask([](const std::shared_ptr<NSError>&) {});
  if (ends.local.connection->remoteObjectProxyWithErrorHandler<Talk>({})) ::_exit(3);
  if (ends.local.connection->unsentBytes() != 0) ::_exit(4);
  if (!ends.local.connection->waitUntilUnsentBelow(1, kPatience)) ::_exit(5);
  ends.local.connection->setExportedObject<Talk>(ends.kept.talker);
  ends.local.connection->setInvalidationHandler([] {});
}

void release(Ends& ends) {
  ends.kept.connection.reset();
  ends.local.connection.reset();
  ends.service->stop();
  ends.service.reset();
  if (liveConnectionCount() != 0) ::_exit(kForkedTooSoon);
}

/// What the child does; true if it then returns from main.
bool behave(const std::string& what, Ends& ends) {
  limitTime();
  if (what == "returns") return true;
  if (what == "exits") std::exit(0);
  if (what == "executes") ::execl("/bin/true", "true", static_cast<char*>(nullptr));
  if (what == "releases") release(ends);
  if (what == "sends") send(ends);
  if (what == "resumes") {
    ends.kept.connection->resume();
    ends.service->stopListening();
  }
  if (what == "invalidates") {
    ends.kept.connection->invalidate();
    ends.local.connection->invalidate();
    ends.service->end(0)->connection->invalidate();
    ends.kept.connection->invalidate();
  }
  ::_exit(what == "executes" ? 127 : 0);
}

/// The child is forked in the middle of a batch, and sends its copy of it.
bool forkInABatch(const Ends& ends) {
  const auto batch = ends.kept.connection->makeBatch();
  const auto batched = batch->proxyWithErrorHandler<Talk>({});
  batched->note(500);
  const pid_t child = ::fork();
  if (child == 0) {
    limitTime();
    batched->note(502);
    batch->send();
    ::_exit(0);
  }
  if (!endsWell(child)) return false;
  batch->send();
  ends.keptProxy->note(501);
  const auto& log = ends.service->end(0)->log;
  return ends.service->end(0)->log.waitFor("note 501") && log.count("note 500") == 1 &&
         log.count("note 502") == 0;
}

/// The child is forked on a connection's own queue, and its handler returns.
bool forkInAHandler(const Ends& ends) {
  std::atomic<bool> endedWell{false};
  const std::function<void(std::uint64_t)> fork = [&](std::uint64_t number) {
    if (number != 600) return;
    const pid_t child = ::fork();
    if (child == 0) {
      limitTime();
      return;
    }
    endedWell = endsWell(child);
    ends.local.log.add("note by the handler");
  };
  onNote = &fork;
  // More than one frame in one read, so that there is something left to deliver.
  const auto batch = ends.kept.connection->makeBatch();
  const auto batched = batch->proxyWithErrorHandler<Talk>({});
  for (std::uint64_t i = 600; i < 700; ++i) batched->note(i);
  batch->send();
  const bool heard = ends.local.log.waitFor("note by the handler") &&
                     ends.service->end(0)->log.waitFor("note 699");
  onNote = nullptr;
  return heard && endedWell;
}

/// The child is forked on the listener's thread.
bool forkInTheListener(const Ends& ends, const std::string& name) {
  std::atomic<bool> endedWell{false};
  EventLog log;
  const std::function<void()> fork = [&] {
    const pid_t child = ::fork();
    if (child == 0) {
      limitTime();
      return;
    }
    endedWell = endsWell(child);
    log.add("forked");
  };
  onConnection = &fork;
  End third;
  if (!connects(third, *ends.service, 2, name) || !log.waitFor("forked")) return false;
  onConnection = nullptr;
  return endedWell && goesOn(third, ends.service->end(2), 700);
}

/// Another thread sends all the time, so that many children are forked while it holds a lock.
bool forkInAHurry(const Ends& ends) {
  std::atomic<bool> isOver{false};
  std::thread sender([&] {
    for (std::uint64_t i = 10'000; !isOver; ++i) {
      ends.keptProxy->note(i);
      static_cast<void>(ends.kept.connection->waitUntilUnsentBelow(1 << 20, kPatience));
    }
  });
  bool well = true;
  for (int i = 0; i < 100 && well; ++i) {
    const pid_t child = ::fork();
    if (child == 0) {
      limitTime();
      ends.keptProxy->note(0);
      ends.kept.connection->invalidate();
      ends.kept.connection.reset();
      ::_exit(0);
    }
    well = endsWell(child);
  }
  isOver = true;
  sender.join();
  return well;
}

bool forks(const std::string& what, Ends& ends, const std::string& name, bool* isChild) {
  if (what == "batches") return forkInABatch(ends);
  if (what == "handles") return forkInAHandler(ends);
  if (what == "accepts") return forkInTheListener(ends, name);
  if (what == "hurries") return forkInAHurry(ends);
  int status = kForkedTooSoon;
  for (int tries = 0; status == kForkedTooSoon && tries < 100; ++tries) {
    const pid_t child = ::fork();
    *isChild = child == 0 && behave(what, ends);
    if (*isChild) return true;
    status = statusOf(child);
  }
  return isWell(status);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  auto* const directory = new TemporaryDirectory;  // a child must not remove it
  const std::string path = (directory->path() / "service.sock").string();
  const std::string name = freshServiceName();
  const auto previous = serviceEndpoints().exchange(std::make_shared<OneEndpoint>(name, path));
  static End kept;
  End local;
  Ends ends{kept, local, nullptr, Service::listen(path)};
  ends.service->prepare = prepare;
  if (!connects(kept, *ends.service, 0, name) || !connects(local, *ends.service, 1, name))
    return failure("no connection");
  ends.keptProxy = kept.proxy();
  bool isChild = false;
  const bool well = forks(argv[1], ends, name, &isChild);
  if (isChild) return 0;
  bool goOn = goesOn(kept, ends.service->end(0), 800) && goesOn(local, ends.service->end(1), 801);
  const std::size_t accepted = ends.service->accepted();
  End another;
  goOn = connects(another, *ends.service, accepted, name) && goOn;
  for (End* end : {&kept, &local, &another}) end->connection.reset();
  ends.service->stop();
  const bool gone = waitUntilNoConnectionIsLeft();
  delete directory;
  if (!well) return failure("the child did not end well");
  if (!goOn) return failure("the parent's connections no longer work");
  return gone ? 0 : failure("connections are left over");
}
