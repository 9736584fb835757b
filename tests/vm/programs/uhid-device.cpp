// SPDX-License-Identifier: Apache-2.0

// A HID device made of a recording's description, driven through standard input.
#include <fcntl.h>
#include <linux/uhid.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "tests/vm/programs/Program.h"

namespace vm {
namespace {

constexpr std::string_view kUsage =
    "usage: uhid-device RECORDING [SENT]\n"
    "Creates the device that RECORDING describes (its lines N:, I: and R:), and obeys standard "
    "input:\n"
    "  report HEX            sends one report\n"
    "  numbered COUNT MS     sends COUNT reports of 8 bytes, each with its own number, evenly over "
    "MS\n"
    "                        milliseconds (0: all at once); what is late is caught up with\n"
    "  paced COUNT MS        the same, but one that is late delays those after it\n"
    "The device is unplugged at the end of the input. Prints what happens to it: started, opened,\n"
    "closed, took N ms, sent N. SENT receives each report that was sent, in hexadecimal.\n";

using Bytes = std::vector<std::uint8_t>;

std::uint32_t hexadecimal(std::string_view text) {
  std::uint32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value, 16);
  if (text.empty() || error != std::errc() || stopped != end) throw UsageError();
  return value;
}

Bytes bytesOf(std::string_view text) {
  Bytes bytes;
  if (text.size() % 2 != 0) throw UsageError();
  for (std::size_t at = 0; at < text.size(); at += 2)
    bytes.push_back(static_cast<std::uint8_t>(hexadecimal(text.substr(at, 2))));
  return bytes;
}

struct Description {
  std::string name;
  std::uint32_t bus = 0, vendor = 0, product = 0;
  Bytes reportDescriptor;
};

Description readDescription(const std::string& path) {
  Description description;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    const auto parts = words(line);
    if (line.starts_with("N: ")) description.name = line.substr(3);
    if (line.starts_with("I: ") && parts.size() == 4) {
      description.bus = hexadecimal(parts[1]);
      description.vendor = hexadecimal(parts[2]);
      description.product = hexadecimal(parts[3]);
    }
    for (std::size_t i = 2; line.starts_with("R: ") && i < parts.size(); ++i)
      description.reportDescriptor.push_back(static_cast<std::uint8_t>(hexadecimal(parts[i])));
  }
  if (description.reportDescriptor.empty())
    throw std::runtime_error(path + " has no report descriptor (a line R:)");
  return description;
}

timespec later(timespec time, std::int64_t nanoseconds) {
  const std::int64_t sum = time.tv_nsec + nanoseconds;
  return {time.tv_sec + sum / 1'000'000'000, sum % 1'000'000'000};
}

timespec now() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return time;
}

/// Number, and a product of it that shows whether the bytes are those that belong together.
Bytes numberedReport(std::uint32_t number) {
  const std::array<std::uint32_t, 2> values{number, number * 2654435761U};
  Bytes report(sizeof values);
  std::memcpy(report.data(), values.data(), sizeof values);
  return report;
}

class Device {
 public:
  explicit Device(const Description& description) : file_(openFile("/dev/uhid", O_RDWR)) {
    uhid_event event{};
    event.type = UHID_CREATE2;
    auto& create = event.u.create2;
    const std::size_t length = std::min(description.name.size(), sizeof create.name - 1);
    std::memcpy(create.name, description.name.data(), length);
    const auto& descriptor = description.reportDescriptor;
    if (descriptor.size() > sizeof create.rd_data) throw std::runtime_error("descriptor too long");
    std::memcpy(create.rd_data, descriptor.data(), descriptor.size());
    create.rd_size = static_cast<std::uint16_t>(descriptor.size());
    create.bus = static_cast<std::uint16_t>(description.bus);
    create.vendor = description.vendor;
    create.product = description.product;
    write(event, sizeof event);
  }
  [[nodiscard]] int descriptor() const { return file_.get(); }

  void send(const Bytes& report) {
    uhid_event event{};
    event.type = UHID_INPUT2;
    if (report.size() > sizeof event.u.input2.data) throw std::runtime_error("report too long");
    event.u.input2.size = static_cast<std::uint16_t>(report.size());
    std::memcpy(event.u.input2.data, report.data(), report.size());
    write(event, offsetof(uhid_event, u.input2.data) + report.size());
  }

  void takeEvent() {
    uhid_event event{};
    if (::read(file_.get(), &event, sizeof event) < 0) throwErrno("/dev/uhid");
    if (event.type == UHID_START) say("started");
    if (event.type == UHID_OPEN) say("opened");
    if (event.type == UHID_CLOSE) say("closed");
    if (event.type == UHID_GET_REPORT) refuse(UHID_GET_REPORT_REPLY, event.u.get_report.id);
    if (event.type == UHID_SET_REPORT) refuse(UHID_SET_REPORT_REPLY, event.u.set_report.id);
  }

 private:
  /// Who asks would otherwise wait five seconds for an answer.
  void refuse(std::uint32_t type, std::uint32_t request) {
    uhid_event event{};
    event.type = type;
    if (type == UHID_GET_REPORT_REPLY) {
      event.u.get_report_reply.id = request;
      event.u.get_report_reply.err = EIO;
    } else {
      event.u.set_report_reply.id = request;
      event.u.set_report_reply.err = EIO;
    }
    write(event, sizeof event);
  }

  void write(const uhid_event& event, std::size_t size) {
    if (::write(file_.get(), &event, size) < 0) throwErrno("/dev/uhid");
  }

  platform::FileDescriptor file_;
};

class Sender {
 public:
  Sender(Device& device, const std::string& sentPath) : device_(device) {
    if (!sentPath.empty()) sent_.open(sentPath);
  }

  void obey(const std::vector<std::string>& command) {
    if (command.size() == 2 && command[0] == "report")
      sendAll({bytesOf(command[1])}, 0, CatchesUp::Yes);
    else if (command.size() == 3 && command[0] == "numbered")
      sendAll(numbered(number(command[1])), number(command[2]), CatchesUp::Yes);
    else if (command.size() == 3 && command[0] == "paced")
      sendAll(numbered(number(command[1])), number(command[2]), CatchesUp::No);
    else
      throw UsageError();
  }

 private:
  enum class CatchesUp { No, Yes };

  std::vector<Bytes> numbered(std::int64_t count) {
    std::vector<Bytes> reports;
    for (; count > 0; --count) reports.push_back(numberedReport(next_++));
    return reports;
  }

  void sendAll(const std::vector<Bytes>& reports, std::int64_t milliseconds, CatchesUp catchesUp) {
    const timespec start = now();
    const auto count = static_cast<std::int64_t>(reports.size());
    const std::int64_t interval = milliseconds * 1'000'000 / count;
    timespec due = start;
    for (const Bytes& report : reports) {
      if (milliseconds != 0) ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
      device_.send(report);
      due = later(catchesUp == CatchesUp::Yes ? due : now(), interval);
    }
    const timespec end = now();
    for (const Bytes& report : reports) sent_ << hex(report) << '\n';
    sent_.flush();
    const std::int64_t took =
        (end.tv_sec - start.tv_sec) * 1000 + (end.tv_nsec - start.tv_nsec) / 1'000'000;
    say("took " + std::to_string(took) + " ms");
    say("sent " + std::to_string(count));
  }

  Device& device_;
  std::ofstream sent_;
  std::uint32_t next_ = 0;
};

/// Whole lines of standard input, without waiting for more than there is.
class Commands {
 public:
  /// False at the end of the input.
  bool take() {
    std::array<char, 4096> part{};
    const ssize_t length = ::read(STDIN_FILENO, part.data(), part.size());
    if (length <= 0) return false;
    text_.append(part.data(), static_cast<std::size_t>(length));
    return true;
  }
  bool next(std::string& line) {
    const auto end = text_.find('\n');
    if (end == std::string::npos) return false;
    line = text_.substr(0, end);
    text_.erase(0, end + 1);
    return true;
  }

 private:
  std::string text_;
};

void serve(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments.size() > 2) throw UsageError();
  Device device(readDescription(arguments[0]));
  Sender sender(device, arguments.size() == 2 ? arguments[1] : "");
  Commands commands;
  for (bool more = true; more;) {
    std::array<pollfd, 2> sources{pollfd{device.descriptor(), POLLIN, 0},
                                  pollfd{STDIN_FILENO, POLLIN, 0}};
    ::poll(sources.data(), sources.size(), -1);
    if (sources[0].revents != 0) device.takeEvent();
    if (sources[1].revents != 0) more = commands.take();
    for (std::string line; commands.next(line);) sender.obey(words(line));
  }
}

}  // namespace
}  // namespace vm

int main(int argc, char** argv) {
  return vm::run(vm::serve, argc, argv, vm::kUsage);
}
