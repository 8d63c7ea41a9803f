#include "status_view/page.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "host/common/log.h"

namespace {

constexpr double kMinute = 60;

// Columns: of the narrowest page, where counts end, and where what is drawn begins.
constexpr int kColumns = 80;
constexpr int kNames = 20;
constexpr int kDrawn = 48;

[[gnu::format(printf, 1, 2)]] std::string Formatted(const char* format, ...) {
  char text[256];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  return text;
}

// "1,234,567".
std::string Grouped(double number) {
  std::string text = Formatted("%.0f", number);
  for (std::size_t end = text.size(); end > 3; end -= 3) {
    text.insert(end - 3, ",");
  }
  return text;
}

// "40 s", "3 h 12 min": two units at the most.
std::string Duration(double seconds) {
  constexpr struct {
    const char* name;
    long seconds;
  } kUnits[] = {{"d", 86400}, {"h", 3600}, {"min", 60}, {"s", 1}};
  const long whole = std::stol(Formatted("%.0f", seconds));
  for (const auto* unit = std::begin(kUnits); unit + 1 != std::end(kUnits); ++unit) {
    if (whole >= unit->seconds) {
      const long rest = whole % unit->seconds / unit[1].seconds;
      return Formatted("%ld %s", whole / unit->seconds, unit->name) +
             (rest == 0 ? "" : Formatted(" %ld %s", rest, unit[1].name));
    }
  }
  return Formatted("%ld s", whole);
}

std::string Rate(double perSecond) {
  return Formatted(perSecond < 100 ? "%.1f" : "%.0f", perSecond);
}

double SecondsBetween(const Moment& early, const Moment& late) {
  return std::chrono::duration<double>(late.at - early.at).count();
}

// Both told by one host: its counts go on from one to the other.
bool Comparable(const Moment& early, const Moment& late) {
  return early.told && late.told && early.told->hostProcess == late.told->hostProcess;
}

// Blocks of an eighth of a cell to a whole one: upwards, and from the left.
constexpr const char* kHeights[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr const char* kWidths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};

using Values = std::vector<std::optional<double>>;

double Most(const Values& values) {
  double most = 0;
  for (const auto& value : values) {
    most = std::max(most, value.value_or(0));
  }
  return most;
}

// A cell a value, the lowest block for zero alone, blank for what is not known.
std::string LineOf(const Values& values) {
  const double most = Most(values);
  std::string line;
  for (const auto& value : values) {
    line += !value       ? " "
            : *value > 0 ? kHeights[1 + static_cast<int>(*value / most * 6)]
                         : kHeights[0];
  }
  return line;
}

// `share` of `width` cells, but not nothing.
std::string Bar(double share, int width) {
  const int eighths = std::max(1, static_cast<int>(share * width * 8));
  std::string bar;
  for (int cell = 0; cell < eighths / 8; ++cell) {
    bar += kHeights[7];
  }
  return bar + kWidths[eighths % 8];
}

// `line` without what does not fit into `columns`: bytes of one character and colours take none.
std::string Fitted(const std::string& line, int columns) {
  std::string fitted;
  bool escape = false;
  for (const char c : line) {
    const bool begins = !escape && c != '\x1b' && (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    if (begins && columns-- <= 0) {
      return fitted + (line.find('\x1b') == std::string::npos ? "" : "\x1b[m");
    }
    escape = c == '\x1b' || (escape && c != 'm');
    fitted += c;
  }
  return fitted;
}

constexpr const char* kRed = "31";
constexpr const char* kGreen = "32";
constexpr const char* kCyan = "36";

std::string StateOf(const Snapshot::Server& server) {
  return server.silentFor ? "silent for " + Duration(*server.silentFor) : server.state;
}

// Of one that is alive.
std::optional<double> RoundTrip(const Snapshot::Server& server) {
  return server.state == "alive" ? server.roundTrip : std::nullopt;
}

// Queries a second between a moment and the one before.
std::optional<double> QueryRate(const History& seen, std::size_t i) {
  return i > 0 && Comparable(seen[i - 1], seen[i])
             ? std::optional((seen[i].told->queries - seen[i - 1].told->queries) /
                             SecondsBetween(seen[i - 1], seen[i]))
             : std::nullopt;
}

// A member of snapshots that holds counts.
using Counts = std::vector<Snapshot::Count> Snapshot::*;

double CountOf(const std::vector<Snapshot::Count>& counts, const std::string& name) {
  const auto found = std::find_if(counts.begin(), counts.end(),
                                  [&](const Snapshot::Count& one) { return one.name == name; });
  return found == counts.end() ? 0 : found->count;
}

double Sum(const std::vector<Snapshot::Count>& counts) {
  double sum = 0;
  for (const Snapshot::Count& count : counts) {
    sum += count.count;
  }
  return sum;
}

// What was counted between two snapshots, by name as in the later one.
std::vector<Snapshot::Count> Since(const Snapshot& early, const Snapshot& late, Counts counts) {
  std::vector<Snapshot::Count> since = late.*counts;
  for (Snapshot::Count& count : since) {
    count.count = std::max(0.0, count.count - CountOf(early.*counts, count.name));
  }
  return since;
}

// The lines as they come about. `seen` is empty for --status.
class Page {
 public:
  Page(const Snapshot& now, const History& seen, int columns, bool coloured)
      : now_(now), seen_(seen), columns_(columns), coloured_(coloured) {}

  std::vector<std::string> Lines() {
    AddState();
    if (!seen_.empty()) {
      AddQueryLine();
    }
    lines_.emplace_back();
    AddCounts("queries", now_.queries, &Snapshot::outcomes);
    AddCounts("kept away", Sum(now_.keptAway), &Snapshot::keptAway);
    lines_.push_back(Row("OPT records taken", now_.optRecords));
    lines_.push_back(Row("stray answers", now_.strayAnswers));
    lines_.emplace_back();
    lines_.emplace_back("servers");
    for (const Snapshot::Server& server : now_.servers) {
      AddServer(server);
    }
    lines_.emplace_back();
    lines_.push_back(Row("restarts", now_.restarts));
    for (const Snapshot::Restart& restart : now_.lastRestarts) {
      lines_.push_back("  started again " + Duration(restart.ago) + " ago: " + restart.why);
    }
    for (std::string& line : lines_) {
      line.erase(line.find_last_not_of(' ') + 1);
    }
    return lines_;
  }

 private:
  std::string Coloured(const char* colour, const std::string& text) const {
    return coloured_ ? std::string("\x1b[") + colour + "m" + text + "\x1b[m" : text;
  }

  static std::string Row(const std::string& name, double count) {
    return Formatted("%-20s%11s", name.c_str(), Grouped(count).c_str());
  }

  void AddState() {
    const std::string uptime = Duration(now_.uptime);
    const bool serving = now_.state == "serving";
    if (!seen_.empty() && !seen_.back().told) {
      lines_.push_back(Coloured(kRed, "no host answers; the last one said:"));
    }
    lines_.push_back(Coloured(
        serving ? kGreen : kRed,
        serving ? "serving for " + uptime : now_.state + "; the host has run for " + uptime));
    if (!now_.error.empty()) {
      lines_.push_back(Coloured(kRed, "what is wrong: " + now_.error));
    }
    lines_.push_back(Formatted("host process %d, ", now_.hostProcess) +
                     (now_.serviceProcess == 0
                          ? "no service process"
                          : Formatted("service process %d", now_.serviceProcess)));
  }

  // What `valueAt` gives for the last moments, as many as there is room for behind `indent`
  // columns.
  template <typename ValueAt>
  Values ValuesFor(int indent, ValueAt valueAt) const {
    const auto room = static_cast<std::size_t>(columns_ - indent);
    Values values(room - std::min(room, seen_.size()));
    for (std::size_t i = seen_.size() - std::min(room, seen_.size()); i < seen_.size(); ++i) {
      values.push_back(valueAt(i));
    }
    return values;
  }

  void AddQueryLine() {
    const Values rates = ValuesFor(kNames, [&](std::size_t i) { return QueryRate(seen_, i); });
    // Each is the rate since the moment before.
    const std::size_t shown = std::min(rates.size() + 1, seen_.size());
    lines_.emplace_back();
    lines_.push_back("queries in the last " +
                     Duration(SecondsBetween(seen_[seen_.size() - shown], seen_.back())) +
                     ": at most " + Rate(Most(rates)) + " a second");
    lines_.push_back(Formatted("%9s a second  ", Rate(rates.back().value_or(0)).c_str()) +
                     Coloured(kCyan, LineOf(rates)));
  }

  // The earliest of the last minute's moments from which counts go on to the last one, if that is
  // another.
  const Moment* MinuteAgo() const {
    const auto found = std::find_if(seen_.begin(), seen_.end(), [&](const Moment& moment) {
      return Comparable(moment, seen_.back()) &&
             SecondsBetween(moment, seen_.back()) < kMinute + 0.5;
    });
    return found == seen_.end() || &*found == &seen_.back() ? nullptr : &*found;
  }

  void AddCounts(const char* title, double total, Counts counts) {
    const Moment* const before = MinuteAgo();
    const std::vector<Snapshot::Count> recent =
        before == nullptr ? std::vector<Snapshot::Count>() : Since(*before->told, now_, counts);
    lines_.push_back(Row(title, total));
    if (before != nullptr && total > 0) {
      lines_.back() += Formatted("%15s  in the last ", Grouped(Sum(recent)).c_str()) +
                       Duration(SecondsBetween(*before, seen_.back()));
    }
    for (const Snapshot::Count& count : now_.*counts) {
      if (count.count > 0) {
        const double lately = CountOf(recent, count.name);
        lines_.push_back(Row("  " + count.name, count.count) +
                         Formatted("%4.0f %%", 100 * count.count / total));
        if (lately > 0) {
          lines_.back() += Formatted("%9s  ", Grouped(lately).c_str()) +
                           Coloured(kCyan, Bar(lately / Sum(recent), columns_ - kDrawn));
        }
      }
    }
  }

  void AddServer(const Snapshot::Server& server) {
    const auto roundTrip = RoundTrip(server);
    lines_.push_back(Formatted("  %-18s", server.address.c_str()) +
                     Coloured(server.silentFor ? kRed : kGreen,
                              Formatted(roundTrip ? "%-18s" : "%-26s", StateOf(server).c_str())) +
                     (roundTrip ? Formatted("%5.0f ms", *roundTrip) : ""));
    const Values roundTrips = ValuesFor(kDrawn, [&](std::size_t i) -> std::optional<double> {
      if (seen_[i].told) {
        for (const Snapshot::Server& one : seen_[i].told->servers) {
          if (one.address == server.address) {
            return RoundTrip(one);
          }
        }
      }
      return std::nullopt;
    });
    if (!seen_.empty()) {
      lines_.back() += "  " + Coloured(kCyan, LineOf(roundTrips));
    }
  }

  const Snapshot& now_;
  const History& seen_;
  const int columns_;
  const bool coloured_;
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> StatusLines(const Snapshot& now) {
  return Page(now, {}, kColumns, false).Lines();
}

std::vector<std::string> PageLines(const History& seen, int columns, bool coloured) {
  const auto last = std::find_if(seen.rbegin(), seen.rend(),
                                 [](const Moment& moment) { return moment.told.has_value(); });
  std::vector<std::string> lines =
      Page(*last->told, seen, std::max(columns, kColumns), coloured).Lines();
  for (std::string& line : lines) {
    line = Fitted(line, columns);
  }
  return lines;
}

std::string OneLine(const History& seen) {
  if (!seen.back().told) {
    return "no host answers";
  }
  const Snapshot& now = *seen.back().told;
  std::string line = now.state + ", " + Rate(QueryRate(seen, seen.size() - 1).value_or(0)) +
                     " queries a second, " + Grouped(CountOf(now.outcomes, "still waiting")) +
                     " waiting";
  for (const Snapshot::Server& server : now.servers) {
    const auto roundTrip = RoundTrip(server);
    line += ", " + server.address + " " + StateOf(server) +
            (roundTrip ? Formatted(" %.0f ms", *roundTrip) : "");
  }
  return line + ", " + Grouped(Sum(now.keptAway)) + " kept away, " + Grouped(now.restarts) +
         " restarts";
}
