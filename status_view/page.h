// Snapshots as lines of text. Functions of their arguments, without a terminal.
#ifndef STATUS_VIEW_PAGE_H_
#define STATUS_VIEW_PAGE_H_

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "host/common/waiting.h"
#include "status_view/snapshot.h"

// What a host was heard to say, and when; nothing if none answered.
struct Moment {
  TimePoint at;
  std::optional<Snapshot> told;
};
using History = std::deque<Moment>;  // the newest last

// What --status prints.
std::vector<std::string> StatusLines(const Snapshot& now);

// What --watch shows: the same, and lines of what has been seen. At least one moment of `seen` has
// told something. For `columns`, and no fewer than 80: a narrower terminal cuts lines off, and those
// with a long reason. UTF-8.
std::vector<std::string> PageLines(const History& seen, int columns, bool coloured);

// What --watch prints where there is no terminal.
std::string OneLine(const History& seen);

#endif  // STATUS_VIEW_PAGE_H_
