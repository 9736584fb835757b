// SPDX-License-Identifier: Apache-2.0

// wlhid-mkimage: makes a helper image.
//
// The image is a thin 64-bit Mach-O executable with the sections __TEXT,__info_plist and
// __TEXT,__launchd_plist and, as __ELF,__program, the program that actually runs. It is a single
// file, so that a program and its version cannot get separated.
#include <elf.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Options {
  std::string label;
  std::string version;
  std::vector<std::string> services;
  std::string program;
  std::string output;
};

constexpr std::string_view kUsage =
    "usage: wlhid-mkimage --label LABEL --version VERSION [--service NAME]... --program FILE "
    "--output FILE\n"
    "Packs a program as a helper image: one file with the program, its label and its version.\n"
    "  --label LABEL      what the job is called, such as com.quillmar.hideventrouter\n"
    "  --version VERSION  what an application compares with the version that it brings\n"
    "  --service NAME     a service that the program offers (default: the label alone)\n"
    "  --program FILE     a 64-bit ELF executable\n"
    "  --output FILE      the image; an old one is replaced\n"
    "wlhid inspect FILE shows the label and version of an image.\n";

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string* placeOf(std::string_view name, Options& options) {
  if (name == "--label") return &options.label;
  if (name == "--version") return &options.version;
  if (name == "--service") return &options.services.emplace_back();
  if (name == "--program") return &options.program;
  if (name == "--output") return &options.output;
  throw UsageError("there is no option " + std::string(name));
}

/// Property lists have no way to write a control character.
void checkText(std::string_view option, const std::string& value) {
  if (value.empty()) throw UsageError(std::string(option) + " needs a value");
  const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
  if (std::any_of(value.begin(), value.end(), isControl))
    throw UsageError("the value of " + std::string(option) + " has a control character");
}

Options parseOptions(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); i += 2) {
    std::string* const place = placeOf(arguments[i], options);
    if (i + 1 == arguments.size()) throw UsageError(arguments[i] + " needs a value");
    *place = arguments[i + 1];
  }
  checkText("--label", options.label);
  checkText("--version", options.version);
  checkText("--program", options.program);
  checkText("--output", options.output);
  for (const auto& service : options.services) checkText("--service", service);
  if (options.services.empty()) options.services.push_back(options.label);
  return options;
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '&')
      result += "&amp;";
    else if (c == '<')
      result += "&lt;";
    else if (c == '>')
      result += "&gt;";
    else
      result += c;
  }
  return result;
}

std::string entry(std::string_view key, const std::string& value) {
  return "\t<key>" + escaped(key) + "</key>\n\t" + value + "\n";
}
std::string text(std::string_view value) {
  return "<string>" + escaped(value) + "</string>";
}

std::string document(const std::string& entries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\">\n<dict>\n" +
         entries + "</dict>\n</plist>\n";
}

std::string infoPlist(const Options& options) {
  return document(entry("CFBundleIdentifier", text(options.label)) +
                  entry("CFBundleInfoDictionaryVersion", text("6.0")) +
                  entry("CFBundleName", text(options.label)) +
                  entry("CFBundleVersion", text(options.version)));
}

/// Describes the job, without its program's path, which is known only when it is installed.
std::string launchdPlist(const Options& options) {
  std::string services = "<dict>\n";
  for (const auto& service : options.services)
    services += "\t\t<key>" + escaped(service) + "</key>\n\t\t<true/>\n";
  return document(entry("Label", text(options.label)) +
                  entry("MachServices", services + "\t</dict>"));
}

Bytes readProgram(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (!in.good() && !in.eof()) throw std::runtime_error("cannot read " + path);
  if (bytes.size() < sizeof(Elf64_Ehdr) || std::memcmp(bytes.data(), ELFMAG, SELFMAG) != 0) {
    throw std::runtime_error(path + " is not an ELF program");
  }
  return bytes;
}

/// The ELF number of the program's processor, in whose byte order it is written.
unsigned machineOf(const Bytes& program) {
  const unsigned first = program[offsetof(Elf64_Ehdr, e_machine)];
  const unsigned second = program[offsetof(Elf64_Ehdr, e_machine) + 1];
  return program[EI_DATA] == ELFDATA2MSB ? first << 8U | second : second << 8U | first;
}

/// The image's processor: the closest one that the format has to the program's own.
struct Processor {
  std::uint32_t type;
  std::uint32_t subtype;
};
Processor processorOf(const Bytes& program) {
  if (machineOf(program) == EM_AARCH64) return {0x0100000C, 0};
  return {0x01000007, 3};
}

class ImageWriter {
 public:
  static constexpr std::uint64_t kPage = 0x4000;
  static constexpr std::uint64_t kBase = 0x100000000;

  struct Section {
    const char* name;
    const void* data;
    std::uint64_t size;
  };

  explicit ImageWriter(const Processor& processor) {
    put32(0xFEEDFACF);
    put32(processor.type);
    put32(processor.subtype);
    put32(2);  // an executable file
    put32(0);  // count and size of commands: filled in by finish()
    put32(0);
    put32(1);  // has no undefined symbols
    put32(0);
  }

  /// Adds a segment. The first one starts at the file's first byte, so it includes the header.
  void addSegment(const char* segment, const std::vector<Section>& sections,
                  std::size_t headerSize) {
    const bool isFirst = commands_++ == 0;
    const std::uint64_t start = isFirst ? 0 : aligned(contentEnd());
    std::uint64_t at = isFirst ? headerSize : start;
    std::vector<std::uint64_t> offsets;
    for (const auto& section : sections) {
      at = (at + 15) / 16 * 16;
      offsets.push_back(at);
      append(at, section);
      at += section.size;
    }
    putSegment(segment, start, at - start, sections, offsets);
  }

  void finish(std::ostream& out) {
    set32(16, commands_);
    set32(20, static_cast<std::uint32_t>(header_.size() - 32));
    std::copy(header_.begin(), header_.end(), content_.begin());
    out.write(reinterpret_cast<const char*>(content_.data()),
              static_cast<std::streamsize>(content_.size()));
  }

  static std::size_t headerSizeFor(std::size_t segments, std::size_t sections) {
    return 32 + 72 * segments + 80 * sections;
  }

 private:
  static std::uint64_t aligned(std::uint64_t value) { return (value + kPage - 1) / kPage * kPage; }
  std::uint64_t contentEnd() const { return content_.size(); }

  void append(std::uint64_t at, const Section& section) {
    content_.resize(at + section.size);
    std::memcpy(content_.data() + at, section.data, section.size);
  }

  void putSegment(const char* segment, std::uint64_t start, std::uint64_t size,
                  const std::vector<Section>& sections, const std::vector<std::uint64_t>& offsets) {
    put32(0x19);
    put32(static_cast<std::uint32_t>(72 + 80 * sections.size()));
    putName(segment);
    put64(kBase + start);
    put64(aligned(size));
    put64(start);
    put64(size);
    put32(5);  // readable and executable
    put32(5);
    put32(static_cast<std::uint32_t>(sections.size()));
    put32(0);
    for (std::size_t i = 0; i < sections.size(); ++i) putSection(segment, sections[i], offsets[i]);
  }

  void putSection(const char* segment, const Section& section, std::uint64_t offset) {
    putName(section.name);
    putName(segment);
    put64(kBase + offset);
    put64(section.size);
    put32(static_cast<std::uint32_t>(offset));
    put32(4);  // aligned to 2^4
    for (int i = 0; i < 6; ++i) put32(0);
  }

  void putName(const char* name) {
    std::array<char, 16> field{};
    std::string_view(name).copy(field.data(), field.size());
    header_.insert(header_.end(), field.begin(), field.end());
  }
  void put32(std::uint32_t value) {
    for (int i = 0; i < 4; ++i) header_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
  void put64(std::uint64_t value) {
    put32(static_cast<std::uint32_t>(value));
    put32(static_cast<std::uint32_t>(value >> 32));
  }
  void set32(std::size_t at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i)
      header_[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> (8 * i));
  }

  Bytes header_;
  Bytes content_;
  std::uint32_t commands_ = 0;
};

/// Written next to its final place and then renamed, so that an interrupted build leaves no partial
/// image.
void writeImage(const Options& options) {
  const Bytes program = readProgram(options.program);
  const std::string info = infoPlist(options);
  const std::string launchd = launchdPlist(options);
  ImageWriter image(processorOf(program));
  image.addSegment("__TEXT",
                   {{"__info_plist", info.data(), info.size()},
                    {"__launchd_plist", launchd.data(), launchd.size()}},
                   ImageWriter::headerSizeFor(2, 3));
  image.addSegment("__ELF", {{"__program", program.data(), program.size()}}, 0);

  namespace fs = std::filesystem;
  fs::create_directories(fs::absolute(options.output).parent_path());
  const std::string partial = options.output + ".partial";
  {
    std::ofstream out(partial, std::ios::binary | std::ios::trunc);
    image.finish(out);
    if (!out.flush()) throw std::runtime_error("cannot write " + partial);
  }
  fs::permissions(partial, fs::perms(0755));
  fs::rename(partial, options.output);
}

}  // namespace

int main(int argc, char** argv) try {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (std::find(arguments.begin(), arguments.end(), "--help") != arguments.end()) {
    std::cout << kUsage;
    return 0;
  }
  writeImage(parseOptions(arguments));
  return 0;
} catch (const UsageError& error) {
  std::cerr << "wlhid-mkimage: " << error.what() << " (see --help)\n";
  return 2;
} catch (const std::exception& error) {
  std::cerr << "wlhid-mkimage: " << error.what() << '\n';
  return 1;
}
