#include "status_view/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace {

// What every terminal of the last decades understands.
constexpr const char* kBegin =
    "\x1b[?1049h\x1b[?25l\x1b[?7l";  // its other screen, no cursor, no line wrapped
constexpr const char* kEnd = "\x1b[?7h\x1b[?25h\x1b[?1049l";
constexpr const char* kHome = "\x1b[H";
constexpr const char* kRestOfLine = "\x1b[K";  // erases; behind a full line, its last column too
constexpr const char* kRestOfScreen = "\x1b[J";

winsize Size() {
  winsize size = {};
  ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
  return size;
}

// All of it, unless the terminal takes nothing for a while: who has stopped the output does not stop
// the end. What is cut off the next page draws over.
void Write(std::string_view text) {
  constexpr int kPatience = 200;  // milliseconds
  pollfd room = {STDOUT_FILENO, POLLOUT, 0};
  while (!text.empty() && poll(&room, 1, kPatience) == 1) {
    const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
    if (written <= 0) {
      break;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

bool Terminal::IsThere() {
  const char* const kind = std::getenv("TERM");
  return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO) && kind != nullptr && *kind != '\0' &&
         std::string_view(kind) != "dumb";
}

void Terminal::Take() {
  termios state = {};
  tcgetattr(STDIN_FILENO, &state);
  before_ = before_.value_or(state);
  state.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  state.c_cc[VMIN] = 0;  // a read does not wait
  state.c_cc[VTIME] = 0;
  tcsetattr(STDIN_FILENO, TCSANOW, &state);
  Write(kBegin);
}

void Terminal::GiveBack() {
  if (before_) {
    Write(kEnd);
    tcsetattr(STDIN_FILENO, TCSANOW, &*before_);
    before_.reset();
  }
}

int Terminal::columns() const { return Size().ws_col == 0 ? 80 : Size().ws_col; }

void Terminal::Draw(const std::vector<std::string>& lines, const std::string& footer) {
  const int rows = Size().ws_row == 0 ? 24 : Size().ws_row;
  std::string page = kHome;
  for (std::size_t i = 0; i < lines.size() && static_cast<int>(i) + 2 < rows; ++i) {
    page += kRestOfLine + lines[i] + "\r\n";
  }
  Write(page + kRestOfScreen + "\r\n" + footer);
}

std::optional<char> Terminal::Key() const {
  char key = 0;
  return read(STDIN_FILENO, &key, 1) == -1 ? std::nullopt : std::optional(key);
}
