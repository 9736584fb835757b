// The presence check against reading the two executables that it reads: whole, each into a buffer
// of its own.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "WLHIDAccess/WLHIDAccess.h"
#include "bench/Bench.h"
#include "bench/Router.h"
#include "platform/foundation/FoundationProvider.h"
#include "platform/services/SystemRoot.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr int kRepetitions = 301;

// The machine's own foundation, with another main bundle.
class BundleFoundation final : public platform::FoundationProvider {
 public:
  explicit BundleFoundation(const fs::path& bundle)
      : bundle_(platform::NSString::stringWithUTF8(bundle.native())) {}
  std::shared_ptr<platform::NSData> dataWithContentsOfFile(
      const std::shared_ptr<platform::NSString>& path) override {
    return machine_->dataWithContentsOfFile(path);
  }
  std::shared_ptr<platform::NSString> mainBundlePath() override { return bundle_; }
  std::shared_ptr<platform::NSObject> propertyListWithData(
      const std::shared_ptr<platform::NSData>& data, platform::NSPropertyListFormat* returnFormat,
      std::shared_ptr<platform::NSError>* returnError) override {
    return machine_->propertyListWithData(data, returnFormat, returnError);
  }
  std::shared_ptr<platform::NSNotificationCenter> defaultCenter() override {
    return machine_->defaultCenter();
  }
  void log(std::string_view text) override { machine_->log(text); }

 private:
  const std::shared_ptr<platform::FoundationProvider> machine_ =
      platform::machineFoundationProvider();
  const std::shared_ptr<platform::NSString> bundle_;
};

// A root with the router of this build installed, as the job daemon would leave it.
class Installation {
 public:
  Installation() : label_(WLHIDEventRouterLabel) {
    std::string pattern = (fs::temp_directory_path() / "wlhid-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
      throw std::runtime_error("cannot make a temporary directory");
    directory_ = pattern;
    const platform::SystemRoot root(directory_ / "root");
    bundleCopy_ = directory_ / "bundle/Contents/Library/LaunchServices" / label_;
    installed_ = root.helperTool(label_);
    const fs::path image = fs::read_symlink("/proc/self/exe").parent_path().parent_path() /
                           "Contents/Library/LaunchServices" / label_;
    for (const fs::path& copy : {bundleCopy_, installed_}) {
      fs::create_directories(copy.parent_path());
      fs::copy_file(image, copy);
    }
    writeJob(root.jobFile(label_));
    platform::SystemRoot::setCurrent(root);
    previous_ = platform::foundationProvider().exchange(
        std::make_shared<BundleFoundation>(directory_ / "bundle"));
  }
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;
  ~Installation() {
    platform::foundationProvider().exchange(previous_);
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }

  [[nodiscard]] const fs::path& bundleCopy() const { return bundleCopy_; }
  [[nodiscard]] const fs::path& installed() const { return installed_; }

 private:
  void writeJob(const fs::path& path) const {
    using platform::NSArray;
    using platform::NSDictionary;
    using platform::str;
    const auto arguments =
        NSArray::arrayWithObjects({platform::NSString::stringWithUTF8(installed_.native())});
    const auto job = NSDictionary::dictionaryWithEntries(
        {{str("Label"), str(label_)}, {str("ProgramArguments"), arguments}});
    const auto bytes = platform::NSPropertyListSerialization::dataWithPropertyList_format_error(
        job, platform::NSPropertyListFormat::XML, nullptr);
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes->bytes()),
              static_cast<std::streamsize>(bytes->length()));
  }

  const std::string label_;
  fs::path directory_;
  fs::path bundleCopy_;
  fs::path installed_;
  std::shared_ptr<platform::FoundationProvider> previous_;
};

// Open, size, one buffer, read to the end, close: what any whole read costs.
std::size_t readWhole(const fs::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  if (descriptor < 0 || ::fstat(descriptor, &status) != 0)
    throw std::runtime_error("cannot read " + path.string());
  const auto size = static_cast<std::size_t>(status.st_size);
  const auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(size);
  std::size_t read = 0;
  while (read < size) {
    const ssize_t got = ::read(descriptor, buffer.get() + read, size - read);
    if (got <= 0) throw std::runtime_error("cannot read " + path.string());
    read += static_cast<std::size_t>(got);
  }
  ::close(descriptor);
  return read;
}

template <class Body>
double microseconds(Body body) {
  const std::uint64_t before = monotonicNanoseconds();
  body();
  return static_cast<double>(monotonicNanoseconds() - before) / 1000.0;
}

}  // namespace

void measurePresence(Report& report) {
  const Installation installation;
  if (!WLHIDEventRouterClient::isInstalled())
    throw std::runtime_error("the presence check says NO");
  std::vector<double> checks;
  std::vector<double> reads;
  for (int i = 0; i < kRepetitions; ++i) {
    reads.push_back(microseconds([&] {
      static_cast<void>(readWhole(installation.bundleCopy()) + readWhole(installation.installed()));
    }));
    checks.push_back(
        microseconds([] { static_cast<void>(WLHIDEventRouterClient::isInstalled()); }));
  }
  report.add({"presence",
              "ratio",
              median(checks) / median(reads),
              1.2,
              /*atLeast=*/false,
              {"check_us", median(checks)},
              {"read_both_us", median(reads)}});
}

}  // namespace bench
