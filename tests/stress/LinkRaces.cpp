// SPDX-License-Identifier: Apache-2.0

// Installs on a system's own root what an unprivileged application names, while unprivileged
// processes race links, renames and writes against every file on the way (LinkRacers.h).
//
// The application opens its helper itself and passes the descriptor, so a name leads the daemon
// nowhere that the application cannot go. What is left is the file's content, and the daemon's own
// directories. Nothing but one of the two trusted images may ever be installed, byte for byte, and
// nothing else may change.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

#include "jobd/HelperInstaller.h"
#include "jobd/ImageTrust.h"
#include "jobd/SystemDaemon.h"
#include "platform/services/JobDaemon.h"
#include "platform/services/RootFiles.h"
#include "platform/services/ServiceEndpoints.h"
#include "platform/services/ServiceError.h"
#include "platform/signing/ImageSignature.h"
#include "tests/stress/LinkRacers.h"
#include "tests/stress/Stress.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/HelperImages.h"
#include "tests/support/OtherUser.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TreeCensus.h"

namespace stress {
namespace {

using platform::ControlRequest;
using platform::FileDescriptor;
using platform::ServiceError;
using testsupport::TreeCensus;
namespace fs = std::filesystem;

constexpr std::uint64_t kTries = 100'000;
constexpr std::chrono::minutes kLongest{10};
constexpr std::uint64_t kWholeInstallations = 200;
constexpr uid_t kUser = testsupport::kOtherUser;
const std::string kLabel(platform::kSystemJobLabel);

/// In memory where possible, so that what is synced is there at once.
void useMemory() {
  if (::access("/dev/shm", W_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 0);
}

/// A system's own root, what is not the racers', and what is.
class Scene {
 public:
  Scene() : root_(directory_.path() / "root") {
    ::umask(022);
    ::chmod(directory_.path().c_str(), 0755);
    fs::create_directories(root_.path() / "run/wlhid");
    platform::SystemRoot::setSystemForTests(root_.path());
    directories_ = jobd::RootDirectories::openSystem(root_);
    const auto keys = platform::signing::newKeyPair();
    testsupport::writeFile(root_.path() / "etc/wlhid/trusted.d/one.pub",
                           platform::signing::textOf(keys.publicKey));
    testsupport::writeFile(secrets_ / "secret", "not for them");
    ::chmod((secrets_ / "secret").c_str(), 0600);
    testsupport::writeFile(secrets_ / "text", "for all to read");
    // Trusted by nobody, and not theirs.
    makeImage(secrets_ / "image", "9.0", nullptr);
    makePlayground(keys);
  }
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;
  ~Scene() { platform::SystemRoot::setSystemForTests({}); }

  [[nodiscard]] const platform::SystemRoot& root() const { return root_; }
  [[nodiscard]] const jobd::RootDirectories& directories() const { return directories_; }
  [[nodiscard]] RacePlan plan() const {
    const fs::path state = root_.path() / "var/lib/wlhid";
    return {
        .user = kUser,
        .playground = playground_,
        .honest = playground_ / "honest",
        .other = playground_ / "other",
        .foreign = {secrets_ / "secret", secrets_ / "text", secrets_ / "image", secrets_,
                    state / "grants.plist", state / "helpers" / kLabel, "/proc/1/stat",
                    "/proc/self/maps", "/dev/zero"},
        .forbidden = {state, state / "jobs", state / "helpers", state / "staging",
                      root_.path() / "run/wlhid", root_.path() / "etc/wlhid/trusted.d", secrets_},
        .names = {kLabel, kLabel + ".plist", ".staging." + kLabel, ".staging." + kLabel + ".plist",
                  "grants.plist", ".grants.draft", "secret", "one.pub"}};
  }
  /// What is installed is one of the two images; empty if nothing is.
  [[nodiscard]] bool isInstalledTrusted() const {
    const std::string found = testsupport::readFile(root_.helperTool(kLabel));
    return found.empty() || found == honest_ || found == other_;
  }
  /// Everything that no installation changes.
  [[nodiscard]] TreeCensus untouchable() const {
    TreeCensus all = testsupport::censusOf(root_.path());
    all.erase("var/lib/wlhid/helpers/" + kLabel);
    all.erase("var/lib/wlhid/jobs/" + kLabel + ".plist");
    for (auto& [path, description] : testsupport::censusOf(secrets_))
      all["secrets/" + path] = description;
    return all;
  }
  /// Links to what is not theirs would count as changes of it.
  void removePlayground() const { fs::remove_all(playground_); }

 private:
  void makePlayground(const platform::signing::KeyPair& keys) {
    fs::create_directories(playground_ / "in");
    makeImage(playground_ / "honest", "1.0", &keys);
    makeImage(playground_ / "other", "2.0", &keys);
    honest_ = testsupport::readFile(playground_ / "honest");
    other_ = testsupport::readFile(playground_ / "other");
    testsupport::writeFile(playground_ / "content", honest_);
    for (const auto& entry : fs::recursive_directory_iterator(playground_))
      if (::chown(entry.path().c_str(), kUser, kUser) != 0)
        throw std::runtime_error("cannot give the playground away");
    if (::chown(playground_.c_str(), kUser, kUser) != 0)
      throw std::runtime_error("cannot give the playground away");
  }
  static void makeImage(const fs::path& path, const std::string& version,
                        const platform::signing::KeyPair* keys) {
    testsupport::makeImage(WLHID_MKIMAGE, {kLabel, version, "/bin/true", {}}, path);
    if (keys == nullptr) return;
    std::string image = testsupport::readFile(path);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(image.data());
    const auto trailer = platform::signing::trailerFor({bytes, image.size()}, keys->secretKey);
    image.append(trailer.begin(), trailer.end());
    testsupport::writeFile(path, image);
  }

  testsupport::TemporaryDirectory directory_;
  platform::SystemRoot root_;
  jobd::RootDirectories directories_;
  fs::path playground_ = directory_.path() / "playground";
  fs::path secrets_ = directory_.path() / "secrets";
  std::string honest_;
  std::string other_;
};

/// As the application opens it, with its rights.
FileDescriptor openAsTheUser(const fs::path& helper) {
  if (::seteuid(kUser) != 0) throw std::runtime_error("cannot become the user");
  FileDescriptor file(::open(helper.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (::seteuid(0) != 0) throw std::runtime_error("cannot be the superuser again");
  return file;
}

/// The daemon's work on one helper, without its connections and processes. True if it installed it.
bool tryToInstall(const Scene& scene, int helper, const jobd::ImageCheck& trust) try {
  const int staging = jobd::helperStaging(scene.directories());
  const auto staged = jobd::stageHelper(staging, helper, kLabel, trust);
  jobd::HelperInstaller(scene.directories(), scene.root())
      .putInPlace(kLabel, staged.services, nullptr);
  return true;
} catch (const ServiceError&) {
  return false;
}

void raceTheCopy(const Scene& scene, const LinkRacers& racers, Findings& findings) {
  const fs::path helper = scene.plan().playground / "in/helper";
  const auto trust = jobd::trustByKeys(scene.root());
  const auto deadline = std::chrono::steady_clock::now() + kLongest;
  std::uint64_t opened = 0;
  std::uint64_t installed = 0;
  const auto& counts = racers.counts();
  while ((counts.moves < kTries || counts.writes < kTries) &&
         std::chrono::steady_clock::now() < deadline) {
    const FileDescriptor file = openAsTheUser(helper);
    if (!file) continue;
    ++opened;
    if (!tryToInstall(scene, file.get(), trust)) continue;
    ++installed;
    findings.demand(scene.isInstalledTrusted(), "only a trusted image is installed");
  }
  findings.figure("helpers opened", opened);
  findings.figure("of those installed", installed);
  findings.demand(installed > 0 && installed < opened, "some are installed, and some refused");
}

/// The daemon's process, on a socket as systemd would pass it.
class Daemon {
 public:
  explicit Daemon(const Scene& scene)
      : listening_(platform::listenUnixSocket(scene.root().controlEndpoint().string(),
                                              SOCK_STREAM | SOCK_NONBLOCK, 64, 0666)),
        process_([&] { serve(scene); }) {}

 private:
  void serve(const Scene& scene) {
    jobd::SystemSeams seams;
    seams.authority = [](const jobd::Question&, const jobd::Decided& decided) {
      decided({jobd::Decision::Kind::Yes, {}});
    };
    seams.trust = jobd::trustByKeys(scene.root());
    jobd::EventLoop loop;
    const jobd::SystemDaemon daemon(loop, scene.root(),
                                    jobd::RootDirectories::openSystem(scene.root()),
                                    std::move(listening_), seams, std::chrono::hours(1));
    loop.run();
  }

  FileDescriptor listening_;
  const testsupport::ChildProcess process_;
};

/// As an application; returns whether the daemon answered.
bool askToInstall(const platform::SystemRoot& root, int helper) try {
  (void)platform::JobDaemon(root).authorize(kLabel).ask({ControlRequest::Operation::Bless, kLabel},
                                                        helper);
  return true;
} catch (const ServiceError&) {
  return false;
}

/// The same through the whole daemon, by an application that is a process of the user.
std::string installAsTheUser(const Scene& scene) {
  const fs::path helper = scene.plan().playground / "in/helper";
  std::uint64_t asked = 0;
  std::uint64_t answered = 0;
  while (asked < kWholeInstallations) {
    const FileDescriptor file(::open(helper.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file) continue;
    ++asked;
    if (askToInstall(scene.root(), file.get())) ++answered;
    if (!scene.isInstalledTrusted()) return "something else was installed";
  }
  return std::to_string(answered);
}

void raceTheDaemon(const Scene& scene, Findings& findings) {
  const Daemon daemon(scene);
  const std::string answered = testsupport::asUser(kUser, [&] { return installAsTheUser(scene); });
  findings.figure("installations by the whole daemon", kWholeInstallations);
  findings.demand(answered == std::to_string(kWholeInstallations),
                  "the daemon answers each of them, and installs only trusted images: " + answered);
}

void raceAll(const Work&, Findings& findings) {
  if (!testsupport::isSuperuser()) {
    findings.figure("skipped", "it needs the superuser, to be another user as well");
    return;
  }
  useMemory();
  const Scene scene;
  testsupport::writeFile(scene.root().path() / "var/lib/wlhid/grants.plist", "as it was");
  const TreeCensus before = scene.untouchable();
  {
    const LinkRacers racers(scene.plan());
    raceTheCopy(scene, racers, findings);
    raceTheDaemon(scene, findings);
    const auto& counts = racers.counts();
    findings.figure("moves of the name", counts.moves.load());
    findings.figure("writes of the content", counts.writes.load());
    findings.figure("tries in the daemon's directories", counts.trespasses.load());
    findings.demandEqual("of those with success", counts.successes.load(), 0);
    findings.demand(counts.moves >= kTries && counts.writes >= kTries && counts.trespasses > 1000,
                    "the racers raced");
  }
  scene.removePlayground();
  fs::remove(scene.root().controlEndpoint());
  for (const auto& path : testsupport::differences(before, scene.untouchable()))
    findings.demand(false, path + " is as it was");
}

}  // namespace
}  // namespace stress

int main(int argc, char** argv) {
  return stress::run(argc, argv, stress::raceAll);
}
