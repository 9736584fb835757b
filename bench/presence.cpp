// SPDX-License-Identifier: Apache-2.0

// The presence check compared with the minimum: reading both executables whole.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "WLHIDAccess/KQPrivilegedHelperManager.h"
#include "bench/Bench.h"
#include "bench/Router.h"
#include "platform/foundation/ForwardingFoundationProvider.h"
#include "platform/services/JobFile.h"
#include "platform/services/SystemRoot.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLabel = "com.quillmar.hideventrouter";
constexpr int kRounds = 301;

/// The machine's foundation, with a main bundle of our choice.
class BundleAt final : public platform::ForwardingFoundationProvider {
 public:
  explicit BundleAt(const fs::path& bundle)
      : bundle_(platform::NSString::stringWithUTF8(bundle.string())) {}

  std::shared_ptr<platform::NSString> mainBundlePath() override { return bundle_; }

 private:
  std::shared_ptr<platform::NSString> bundle_;
};

/// A root in which the router is installed, and a bundle that holds the same version.
class InstalledRouter {
 public:
  InstalledRouter() {
    std::string pattern = (fs::temp_directory_path() / "wlhid-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
      throw std::runtime_error("cannot make a temporary directory");
    directory_ = pattern;
    const platform::SystemRoot root(directory_ / "root");
    installed_ = root.helperTool(kLabel);
    bundled_ = directory_ / "bundle/Contents/Library/LaunchServices" / kLabel;
    for (const auto& place : {installed_, bundled_, root.jobFile(kLabel)})
      fs::create_directories(place.parent_path());
    fs::copy_file(WLHID_ROUTER_IMAGE, installed_);
    fs::copy_file(WLHID_ROUTER_IMAGE, bundled_);
    const auto job = platform::encodeJobFile({kLabel, {installed_.string()}, {kLabel}});
    std::ofstream(root.jobFile(kLabel), std::ios::binary)
        .write(reinterpret_cast<const char*>(job.data()), static_cast<std::streamsize>(job.size()));
    platform::SystemRoot::setCurrent(root);
    replaced_ =
        platform::foundationProvider().exchange(std::make_shared<BundleAt>(directory_ / "bundle"));
  }
  InstalledRouter(const InstalledRouter&) = delete;
  InstalledRouter& operator=(const InstalledRouter&) = delete;
  ~InstalledRouter() {
    platform::foundationProvider().exchange(replaced_);
    platform::SystemRoot::resetCurrent();
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }

  [[nodiscard]] const fs::path& installed() const { return installed_; }
  [[nodiscard]] const fs::path& bundled() const { return bundled_; }

 private:
  fs::path directory_;
  fs::path installed_;
  fs::path bundled_;
  std::shared_ptr<platform::FoundationProvider> replaced_;
};

/// Reads a whole file into memory of its own; returns its last byte, so that no read is optimised
/// away.
unsigned readWhole(const fs::path& path) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  if (file < 0 || ::fstat(file, &status) != 0)
    throw std::runtime_error("cannot open " + path.string());
  const auto size = static_cast<std::size_t>(status.st_size);
  const std::unique_ptr<unsigned char[]> bytes(new unsigned char[size]);
  std::size_t have = 0;
  for (ssize_t got = 1; have < size && got > 0; have += static_cast<std::size_t>(got)) {
    got = ::read(file, bytes.get() + have, size - have);
    if (got < 0) throw std::runtime_error("cannot read " + path.string());
  }
  ::close(file);
  return have == size && size > 0 ? bytes[size - 1] : 0U;
}

template <class Body>
double microseconds(const Body& body) {
  const auto start = monotonicNanoseconds();
  body();
  return static_cast<double>(monotonicNanoseconds() - start) / 1000.0;
}

}  // namespace

void measurePresence(Report& report) {
  const InstalledRouter router;
  const auto name = platform::str(kLabel);
  volatile unsigned seen = 0;
  std::vector<double> checks;
  std::vector<double> reads;
  // The two alternate, so that both see the machine in the same state.
  for (int round = 0; round < kRounds; ++round) {
    reads.push_back(
        microseconds([&] { seen = readWhole(router.bundled()) + readWhole(router.installed()); }));
    checks.push_back(microseconds([&] {
      if (!KQPrivilegedHelperManager::isPriviledgedHelperInstalledWithLabel(name)) {
        throw std::runtime_error("the presence check did not find the router");
      }
    }));
  }
  const double check = median(checks);
  const double read = median(reads);
  report.add(
      {"presence", "ratio", check / read, 1.2, false, {"check_us", check}, {"read_both_us", read}});
}

}  // namespace bench
