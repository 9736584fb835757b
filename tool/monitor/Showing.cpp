// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/Showing.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <map>
#include <span>
#include <utility>

#include "platform/foundation/Format.h"
#include "tool/command/Command.h"
#include "tool/command/Numbers.h"
#include "tool/descriptor/ClassText.h"
#include "tool/files/NewFile.h"
#include "tool/monitor/Draw.h"
#include "tool/monitor/ScreenSvg.h"
#include "tool/picture/PictureData.h"

namespace tool::monitor {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFrame{33};
/// What changes with time alone does so at least this often.
constexpr milliseconds kIdle{250};
/// The list of devices, which has their names, may come after the first reports, or not at all.
constexpr std::chrono::seconds kListTime{2};

struct Ready {
  bool stop = false;
  bool news = false;
  bool keys = false;
  bool hasHungUp = false;  // nobody can type any more
};

/// Waits until one of them is ready. News and keys count only if they are asked for.
Ready await(const StopSignals& signals, const Session* news, bool keys, Clock::duration limit) {
  std::array<pollfd, 3> events{pollfd{signals.descriptor(), POLLIN, 0},
                               pollfd{news != nullptr ? news->descriptor() : -1, POLLIN, 0},
                               pollfd{keys ? STDIN_FILENO : -1, POLLIN, 0}};
  const auto time = std::chrono::ceil<milliseconds>(limit).count();
  const int count = ::poll(events.data(), events.size(),
                           static_cast<int>(std::clamp<std::int64_t>(time, 0, kIdle.count())));
  if (count <= 0) return {};
  return {events[0].revents != 0, events[1].revents != 0, (events[2].revents & POLLIN) != 0,
          (events[2].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0};
}

void drawOn(FullScreen& terminal, Session& session) {
  session.takeNews();
  session.tick();
  Screen screen = terminal.blank();
  draw(session.shown(), screen);
  terminal.show(std::move(screen));
}

/// Does what the keys ask for. False once they ask for the end.
bool takeKeys(Session& session, FullScreen& terminal) {
  while (const auto key = terminal.key()) {
    const Screen screen = terminal.blank();
    const Wish wish = take(*key, session.shown(), screen.rows(), screen.columns());
    if (wish == Wish::Quit) return false;
    if (wish == Wish::Suspend)
      terminal.suspend();
    else
      session.grant(wish);
  }
  return true;
}

std::string lineOfDevice(const ListedDevice& device) {
  return device.name + " (" + hexadecimal(device.id) + "), " + device.deviceClass + ", " +
         device.state;
}

/// Prints what is different from the last time.
class ListPrinter {
 public:
  void print(const Shown& shown) {
    std::map<std::uint64_t, std::string> lines;
    for (const ListedDevice& device : shown.devices) lines[device.id] = lineOfDevice(device);
    for (const auto& [id, line] : before_)
      if (!lines.contains(id)) printOne("- " + line);
    for (const auto& [id, line] : lines) {
      const auto known = before_.find(id);
      if (known == before_.end() || known->second != line) printOne("+ " + line);
    }
    before_ = std::move(lines);
    if (shown.noDevices != why_) printOne("! " + shown.noDevices);
    why_ = shown.noDevices;
  }
  static void printOne(const std::string& line) {
    if (line.size() > 2) tool::print(oneLine(line) + "\n");
  }

 private:
  std::map<std::uint64_t, std::string> before_;
  std::string why_;
};

/// Shows no more than so many reports, one by one. Whether they have come.
bool hasShown(Session& session, std::uint64_t reports) {
  session.takeNews();
  session.tick();
  const Shown& shown = session.shown();
  for (std::size_t i = shown.waiting; i > 0 && shown.model->pace().count() < reports; --i)
    session.grant(Wish::Step);
  return shown.model->pace().count() >= reports;
}

void writePicture(const Shown& shown, const PictureOptions& options) {
  Screen screen(options.rows, options.columns, options.look);
  draw(shown, screen);
  const std::string svg = svgOf(screen, "wlhid monitor");
  NewFile file(options.file);
  file.write(std::span(reinterpret_cast<const std::uint8_t*>(svg.data()), svg.size()));
  file.keep();
}

}  // namespace

void showOnTerminal(Session& session, FullScreen& terminal, const StopSignals& signals,
                    Clock::time_point end) {
  auto next = Clock::now();
  while (Clock::now() < end) {
    if (!takeKeys(session, terminal)) return;
    drawOn(terminal, session);
    next = Clock::now() + kFrame;
    Ready ready = await(signals, &session, true, end - Clock::now());
    // News alone wait until it is time for the next frame; a key does not.
    while (!ready.stop && !ready.keys && !ready.hasHungUp && ready.news && Clock::now() < next) {
      ready = await(signals, nullptr, true, next - Clock::now());
      ready.news = true;
    }
    if (ready.stop || (ready.hasHungUp && !ready.keys)) return;
  }
}

std::string lineOf(const Shown& shown) {
  std::string line = shown.state;
  if (shown.model == nullptr) return line;
  line += platform::stringWithFormat("; %.0f reports/s", shown.model->pace().perSecond(shown.now));
  if (shown.lost) line += ", " + lossText(*shown.lost);
  std::string separator = ";";
  for (const Track& track : shown.model->tracks()) {
    const bool isIdle = track.kind == Track::Kind::Slot     ? track.selected.id == 0
                        : track.kind == Track::Kind::Switch ? track.value == 0
                                                            : false;
    if (!track.hasValue || isIdle) continue;
    line += separator + " " + track.name + "=" + track.valueText();
    separator.clear();
  }
  return line;
}

void showLines(Session& session, const StopSignals& signals, Clock::time_point end) {
  ListPrinter list;
  std::string state;
  std::uint64_t reports = 0;
  auto next = Clock::now();
  while (Clock::now() < end && !session.isOver()) {
    if (await(signals, &session, false, end - Clock::now()).stop) return;
    session.takeNews();
    session.tick();
    const Shown& shown = session.shown();
    list.print(shown);
    const std::uint64_t now = shown.model == nullptr ? 0 : shown.model->pace().count();
    const bool isDue = now != reports && Clock::now() >= next;
    if (shown.state == state && !isDue) continue;
    ListPrinter::printOne("  " + lineOf(shown));
    state = shown.state;
    reports = now;
    next = Clock::now() + std::chrono::seconds(1);
  }
}

void showPicture(Session& session, const PictureOptions& options, const StopSignals& signals,
                 Clock::time_point end) {
  session.grant(Wish::Pause);
  for (;;) {
    const bool haveCome = hasShown(session, options.reports);
    if (haveCome) end = std::min(end, Clock::now() + kListTime);
    const bool isReady = haveCome && !session.shown().devices.empty();
    if (isReady || session.isOver() || Clock::now() >= end) break;
    if (await(signals, &session, false, end - Clock::now()).stop)
      throw Failure(options.file + ": not written, as the reports had not come yet");
  }
  session.tick();
  session.shown().isPaused = false;
  writePicture(session.shown(), options);
}

void drawRecording(const std::string& recording, const PictureOptions& options) {
  const PictureData data = readPicture(recording, 0);
  const std::string name = data.header.name.empty() ? data.file : data.header.name;
  DeviceModel model(data.header.reportDescriptor);
  Shown shown;
  const std::size_t count = std::min<std::uint64_t>(options.reports, data.reports.count());
  for (std::size_t i = 0; i < count; ++i) {
    shown.now = Time(data.reports.times[i]);
    model.take(shown.now, data.reports.report(i));
  }
  shown.devices = {{1, name, "", className(data.classification), "recorded"}};
  shown.open = 1;
  shown.name = name;
  shown.health = Health::Good;
  shown.state = "recorded in " + data.file;
  shown.since = platform::stringWithFormat("the beginning (%.1f s)",
                                           std::chrono::duration<double>(shown.now).count());
  shown.model = &model;
  shown.reports = model.reports().latest();
  writePicture(shown, options);
}

}  // namespace tool::monitor
