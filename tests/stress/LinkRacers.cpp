// SPDX-License-Identifier: Apache-2.0

#include "tests/stress/LinkRacers.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <new>
#include <random>

#include "platform/services/FileDescriptor.h"
#include "tests/support/TemporaryDirectory.h"

namespace stress {
namespace {

namespace fs = std::filesystem;
using platform::FileDescriptor;

class Dice {
 public:
  std::size_t operator()(std::size_t sides) { return engine_() % sides; }

 private:
  std::minstd_rand engine_{static_cast<unsigned>(::getpid())};
};

// ---- The name

/// Puts something else behind the name, in one step.
void replaceHelper(const RacePlan& plan, Dice& dice) {
  const std::string name = plan.playground / "in/helper";
  const std::string next = plan.playground / "in/next";
  const fs::path& foreign = plan.foreign[dice(plan.foreign.size())];
  ::unlink(next.c_str());
  ::rmdir(next.c_str());
  switch (dice(7)) {
    case 0:
      ::symlink(foreign.c_str(), next.c_str());
      break;
    case 1:
      [[fallthrough]];
    case 2:
      ::link(foreign.c_str(), next.c_str());
      break;
    case 3:
      ::mkfifo(next.c_str(), 0666);
      break;
    case 4:
      ::link((plan.playground / "content").c_str(), next.c_str());
      break;
    case 5:
      ::symlink(plan.honest.c_str(), next.c_str());
      break;
    default:
      ::link(plan.other.c_str(), next.c_str());
  }
  ::rename(next.c_str(), name.c_str());
}

/// Exchanges the directory of the helper with a link to one that is not the racers'.
void replaceDirectory(const RacePlan& plan, Dice& dice) {
  const std::string own = plan.playground / "in";
  const std::string link = plan.playground / "link";
  ::symlink(plan.forbidden[dice(plan.forbidden.size())].c_str(), link.c_str());
  for (int i = 0; i < 2; ++i)
    ::renameat2(AT_FDCWD, own.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
  ::unlink(link.c_str());
}

void raceForTheName(const RacePlan& plan, LinkRacers::Counts& counts) {
  for (Dice dice;; ++counts.moves) {
    if (dice(16) == 0)
      replaceDirectory(plan, dice);
    else
      replaceHelper(plan, dice);
  }
}

// ---- The content

void raceForTheContent(const RacePlan& plan, LinkRacers::Counts& counts) {
  const FileDescriptor file(
      ::open((plan.playground / "content").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  const std::array images{testsupport::readFile(plan.honest), testsupport::readFile(plan.other)};
  for (Dice dice;; ++counts.writes) {
    const std::string& image = images.at(dice(images.size()));
    const std::size_t from = dice(4) == 0 ? 0 : dice(image.size());
    [[maybe_unused]] ssize_t written =
        ::pwrite(file.get(), image.data() + from, image.size() - from, static_cast<off_t>(from));
    if (dice(8) == 0) written = ::ftruncate(file.get(), static_cast<off_t>(dice(2 * image.size())));
  }
}

// ---- The daemon's directories

bool trespass(const fs::path& place, const std::string& name, const fs::path& foreign, Dice& dice) {
  const std::string path = place / name;
  switch (dice(8)) {
    case 0:
      return ::symlink(foreign.c_str(), path.c_str()) == 0;
    case 1:
      return ::link(foreign.c_str(), path.c_str()) == 0;
    case 2:
      return ::rename(foreign.c_str(), path.c_str()) == 0;
    case 3:
      return ::mkdir(path.c_str(), 0777) == 0;
    case 4:
      return ::unlink(path.c_str()) == 0;
    case 5:
      return ::chmod(path.c_str(), 0777) == 0;
    case 6:
      return ::rename(path.c_str(), (place / "elsewhere").c_str()) == 0;
    default:
      return static_cast<bool>(
          FileDescriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666)));
  }
}

/// What is being installed is not even there to be read.
bool readsStaging(const fs::path& place, const std::string& name) {
  return place.filename() == "staging" &&
         static_cast<bool>(FileDescriptor(::open((place / name).c_str(), O_RDONLY | O_CLOEXEC)));
}

void raceForThePlaces(const RacePlan& plan, LinkRacers::Counts& counts) {
  for (Dice dice;; ++counts.trespasses) {
    const fs::path& place = plan.forbidden[dice(plan.forbidden.size())];
    const std::string& name = plan.names[dice(plan.names.size())];
    if (trespass(place, name, plan.playground / "in/helper", dice) || readsStaging(place, name))
      ++counts.successes;
  }
}

}  // namespace

bool becomeUser(uid_t user) {
  return ::setgroups(0, nullptr) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0;
}

LinkRacers::LinkRacers(const RacePlan& plan)
    : counts_(new (::mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Counts) {
  for (const Race race : {raceForTheName, raceForTheContent, raceForThePlaces}) start(plan, race);
}

void LinkRacers::start(const RacePlan& plan, Race race) {
  processes_.emplace_back([&] {
    if (!becomeUser(plan.user)) ::_exit(1);
    testsupport::ChildProcess::dieWithParent();
    ::umask(0);
    race(plan, *counts_);
  });
}

LinkRacers::~LinkRacers() {
  processes_.clear();
  ::munmap(counts_, sizeof(Counts));
}

}  // namespace stress
