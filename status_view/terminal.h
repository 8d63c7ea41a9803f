// The terminal that a page is drawn on: keys as they are typed, a screen of its own, no cursor.
// What it was before comes back with the end of the object.
#ifndef STATUS_VIEW_TERMINAL_H_
#define STATUS_VIEW_TERMINAL_H_

#include <termios.h>

#include <optional>
#include <string>
#include <vector>

class Terminal {
 public:
  // Whether standard input and output are a terminal that can do this.
  static bool IsThere();

  Terminal() { Take(); }
  ~Terminal() { GiveBack(); }

  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // As it was, until Take is called again; and Take alone, for who has changed it meanwhile.
  void GiveBack();
  void Take();

  int columns() const;

  // As many of `lines` as fit, and `footer` below.
  void Draw(const std::vector<std::string>& lines, const std::string& footer);

  // A key that has been typed, 0 if none; nothing when the terminal has gone. Does not wait.
  std::optional<char> Key() const;

 private:
  std::optional<termios> before_;
};

#endif  // STATUS_VIEW_TERMINAL_H_
