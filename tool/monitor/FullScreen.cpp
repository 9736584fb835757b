// SPDX-License-Identifier: Apache-2.0

#include "tool/monitor/FullScreen.h"

#include <fcntl.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <csignal>
#include <string_view>
#include <utility>

#include "platform/services/FileDescriptor.h"
#include "tool/monitor/TerminalRescue.h"
#include "tool/terminal/Terminal.h"

// Last, since it defines macros; fewer of them like this.
#define NCURSES_NOMACROS
#include <curses.h>

namespace tool::monitor {

namespace {

/// What the library writes to standard error would be written across the screen.
class QuietErrors {
 public:
  QuietErrors() {
    const platform::FileDescriptor nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (::isatty(STDERR_FILENO) != 1 || !nowhere) return;
    before_ = platform::FileDescriptor(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
    if (before_) ::dup2(nowhere.get(), STDERR_FILENO);
  }
  ~QuietErrors() {
    if (before_) ::dup2(before_.get(), STDERR_FILENO);
  }
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;

 private:
  platform::FileDescriptor before_;
};

}  // namespace

struct FullScreen::Terminal {
  SCREEN* screen = nullptr;
  std::unique_ptr<QuietErrors> quiet;
  std::unique_ptr<TerminalRescue> rescue;
};

namespace {

constexpr int kFewColours = 8;
constexpr int kManyColours = 256;

/// The terminal's numbers of the colours; -1 is its own.
struct Numbers {
  Colour colour;
  short ofMany;
  short ofEight;
};
constexpr std::array kNumbers{Numbers{Colour::Quiet, 245, -1},
                              Numbers{Colour::Good, 35, COLOR_GREEN},
                              Numbers{Colour::Warning, 172, COLOR_YELLOW},
                              Numbers{Colour::Bad, 160, COLOR_RED},
                              Numbers{Colour::Accent, 38, COLOR_CYAN},
                              Numbers{Colour::Level1, 24, COLOR_BLUE},
                              Numbers{Colour::Level2, 31, COLOR_BLUE},
                              Numbers{Colour::Level3, 38, COLOR_CYAN},
                              Numbers{Colour::Level4, 51, COLOR_CYAN}};

bool isUnicodeLocale() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
  if (std::setlocale(LC_CTYPE, "") == nullptr) return false;
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  return std::string_view(::nl_langinfo(CODESET)) == "UTF-8";
}

/// Asks the terminal's description: the library knows COLORS only once colours are in use.
bool hasWantedColours() {
  return showsColours(STDOUT_FILENO) && tigetnum("colors") >= kFewColours;
}

void defineColours() {
  start_color();
  use_default_colors();
  for (const Numbers& each : kNumbers)
    init_pair(static_cast<short>(each.colour), COLORS >= kManyColours ? each.ofMany : each.ofEight,
              -1);
}

/// Few colours need attributes to be told apart.
attr_t attributesOf(const Style& style) {
  attr_t attributes = A_NORMAL;
  const bool hasFew = COLORS < kManyColours;
  if (style.isBold || (hasFew && style.colour == Colour::Level4)) attributes |= A_BOLD;
  if (style.isDim || (hasFew && (style.colour == Colour::Quiet || style.colour == Colour::Level1)))
    attributes |= A_DIM;
  if (style.isReverse) attributes |= A_REVERSE;
  return attributes;
}

Key keyOfCode(wint_t code) {
  switch (code) {
    case KEY_UP:
      return Key::Up;
    case KEY_DOWN:
      return Key::Down;
    case KEY_PPAGE:
      return Key::PageUp;
    case KEY_NPAGE:
      return Key::PageDown;
    case KEY_ENTER:
      return Key::Enter;
    default:
      return Key::Other;
  }
}

bool isCapable() {
  const bool isMovable = tigetstr("cup") != nullptr;  // a terminal that can only go on cannot
  return isMovable && LINES > 0 && COLS > 0;
}

void prepareKeys() {
  raw();  // Ctrl-C and Ctrl-Z are keys
  noecho();
  nonl();
  keypad(stdscr, TRUE);
  nodelay(stdscr, TRUE);
  typeahead(-1);  // a key waits for the end of a frame; asking costs a call every few rows
  curs_set(0);
  set_escdelay(25);
}

}  // namespace

std::unique_ptr<FullScreen> FullScreen::open(bool isPlain) {
  if (::isatty(STDIN_FILENO) != 1 || ::isatty(STDOUT_FILENO) != 1) return nullptr;
  if (columnsOfTerminal(STDOUT_FILENO) == 0 || !canMove(STDOUT_FILENO)) return nullptr;
  const bool hasUnicode = isUnicodeLocale() && !isPlain;
  auto terminal = std::make_unique<Terminal>();
  terminal->rescue = std::make_unique<TerminalRescue>();
  terminal->screen = newterm(nullptr, stdout, stdin);
  if (terminal->screen == nullptr) return nullptr;
  if (!isCapable()) {
    endwin();
    delscreen(terminal->screen);
    return nullptr;
  }
  terminal->quiet = std::make_unique<QuietErrors>();
  terminal->rescue->arm(tigetstr("rmcup"), tigetstr("cnorm"), tigetstr("sgr0"));
  prepareKeys();
  const bool hasColours = hasWantedColours();
  if (hasColours) defineColours();
  return std::unique_ptr<FullScreen>(new FullScreen(std::move(terminal), {hasUnicode, hasColours}));
}

FullScreen::FullScreen(std::unique_ptr<Terminal> terminal, Look look)
    : terminal_(std::move(terminal)), look_(look) {}

FullScreen::~FullScreen() {
  endwin();
  delscreen(terminal_->screen);
}

/// The size is asked for each time: who is told of a change by a signal may miss it in another
/// thread.
Screen FullScreen::blank() {
  winsize size{};
  const bool isKnown =
      ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0;
  if (isKnown && (size.ws_row != LINES || size.ws_col != COLS)) {
    resizeterm(size.ws_row, size.ws_col);
    clear();
  }
  return {LINES, COLS, look_};
}

void FullScreen::drawCell(int row, int column, const Cell& cell) {
  const std::array<wchar_t, 2> text{static_cast<wchar_t>(cell.character), L'\0'};
  cchar_t character{};
  const short pair = look_.hasColours ? static_cast<short>(cell.style.colour) : short{0};
  setcchar(&character, text.data(), attributesOf(cell.style), pair, nullptr);
  mvadd_wch(row, column, &character);
}

void FullScreen::show(Screen screen) {
  const bool hasBefore =
      before_ && before_->rows() == screen.rows() && before_->columns() == screen.columns();
  for (int row = 0; row < screen.rows(); ++row) {
    if (hasBefore && std::ranges::equal(before_->row(row), screen.row(row))) continue;
    for (int column = 0; column < screen.columns(); ++column) {
      const Cell& cell = screen.at(row, column);
      if (cell.character == 0 || (hasBefore && before_->at(row, column) == cell)) continue;
      drawCell(row, column, cell);
    }
  }
  refresh();
  before_ = std::move(screen);
}

std::optional<Key> FullScreen::key() {
  wint_t code = 0;
  const int kind = get_wch(&code);
  if (kind == ERR) return std::nullopt;
  if (kind == KEY_CODE_YES && code == KEY_RESIZE) before_.reset();
  return kind == KEY_CODE_YES ? keyOfCode(code) : keyOf(static_cast<char32_t>(code));
}

void FullScreen::suspend() {
  endwin();
  struct sigaction usual {};
  struct sigaction before {};
  usual.sa_handler = SIG_DFL;
  ::sigaction(SIGTSTP, &usual, &before);
  ::kill(0, SIGTSTP);  // what runs with it, too
  ::sigaction(SIGTSTP, &before, nullptr);
  before_.reset();
  clear();
}

}  // namespace tool::monitor
