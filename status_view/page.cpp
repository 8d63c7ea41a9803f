#include "status_view/page.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <numeric>

namespace {

constexpr double kMinute = 60.5;  // what is asked for every second comes a little later

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
  const long whole = std::stol(Formatted("%.0f", seconds));
  return whole < 120     ? Formatted("%ld s", whole)
         : whole < 3600  ? Formatted("%ld min %ld s", whole / 60, whole % 60)
         : whole < 86400 ? Formatted("%ld h %ld min", whole / 3600, whole / 60 % 60)
                         : Formatted("%ld d %ld h", whole / 86400, whole / 3600 % 24);
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

constexpr const char* kBlocks[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

constexpr const char* kRed = "31";
constexpr const char* kGreen = "32";
constexpr const char* kCyan = "36";

// One for each column; blank where it is not known.
using Values = std::vector<std::optional<double>>;

double Most(const Values& values) {
  const auto most = std::ranges::max_element(values);  // what is not known is the least
  return most == values.end() ? 0 : most->value_or(0);
}

// The lowest block for zero alone.
std::string LineOf(const Values& values) {
  const double most = Most(values);
  std::string line;
  for (const auto& value : values) {
    line += !value ? " " : kBlocks[*value > 0 ? 1 + static_cast<int>(*value / most * 6) : 0];
  }
  return line;
}

// `share` of `width` cells, at least one.
std::string Bar(double share, int width) {
  std::string bar;
  for (int cells = std::clamp(static_cast<int>(share * width), 1, width); cells > 0; --cells) {
    bar += kBlocks[7];
  }
  return bar;
}

// A member of snapshots that holds counts.
using Counts = std::vector<Snapshot::Count> Snapshot::*;

std::optional<double> CountOf(const std::vector<Snapshot::Count>& counts, const std::string& name) {
  const auto found = std::ranges::find(counts, name, &Snapshot::Count::name);
  return found == counts.end() ? std::nullopt : std::optional(found->count);
}

double Sum(const std::vector<Snapshot::Count>& counts) {
  return std::accumulate(counts.begin(), counts.end(), 0.0,
                         [](double sum, const Snapshot::Count& one) { return sum + one.count; });
}

// Queries a second between a moment and the one before.
std::optional<double> QueryRate(const History& seen, std::size_t i) {
  return i > 0 && Comparable(seen[i - 1], seen[i])
             ? std::optional((Sum(seen[i].told->outcomes) - Sum(seen[i - 1].told->outcomes)) /
                             SecondsBetween(seen[i - 1], seen[i]))
             : std::nullopt;
}

std::string StateOf(const Snapshot::Server& server) {
  return server.silentFor ? "silent for " + Duration(*server.silentFor) : server.state;
}

// The lines as they come about. `seen` is empty for --status.
class Page {
 public:
  Page(const Snapshot& now, const History& seen, int columns, bool coloured)
      : now_(now), seen_(seen), columns_(std::max(columns, kColumns)), coloured_(coloured) {
    // The earliest of the last minute's moments from which counts go on to the last one.
    const auto ago = std::ranges::find_if(seen, [&](const Moment& moment) {
      return Comparable(moment, seen.back()) && SecondsBetween(moment, seen.back()) < kMinute;
    });
    minuteAgo_ = ago == seen.end() ? nullptr : &*ago;
  }

  std::vector<std::string> Lines() {
    AddState();
    if (!seen_.empty()) {
      AddQueryLine();
    }
    Add("");
    AddCounts("queries", &Snapshot::outcomes);
    AddCounts("kept away", &Snapshot::keptAway);
    Add(Row("OPT records taken", now_.optRecords));
    Add(Row("stray answers", now_.strayAnswers));
    Add("");
    Add("servers");
    for (const Snapshot::Server& server : now_.servers) {
      AddServer(server);
    }
    Add("");
    Add(Row("restarts", now_.restarts));
    for (const Snapshot::Count& restart : now_.lastRestarts) {
      Add("  started again " + Duration(restart.count) + " ago: " + restart.name);
    }
    return lines_;
  }

 private:
  void Add(const std::string& line) {
    lines_.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
  }

  std::string Coloured(const char* colour, const std::string& text) const {
    return coloured_ ? std::string("\x1b[") + colour + "m" + text + "\x1b[m" : text;
  }

  static std::string Row(const std::string& name, double count) {
    return Formatted("%-20s%11s", name.c_str(), Grouped(count).c_str());
  }

  void AddState() {
    if (!seen_.empty() && !seen_.back().told) {
      Add(Coloured(kRed, "no host answers; the last one said:"));
    }
    const bool serving = now_.state == "serving";
    Add(Coloured(
        serving ? kGreen : kRed,
        now_.state + (serving ? " for " : "; the host has run for ") + Duration(now_.uptime)));
    if (!now_.error.empty()) {
      Add(Coloured(kRed, "what is wrong: " + now_.error));
    }
    Add("host process " + std::to_string(now_.hostProcess) +
        (now_.serviceProcess == 0 ? ", no service process"
                                  : ", service process " + std::to_string(now_.serviceProcess)));
  }

  // What `valueAt` gives for the last moments, as many as there is room for behind `indent` columns.
  Values ValuesFor(int indent, const auto& valueAt) const {
    Values values(static_cast<std::size_t>(columns_ - indent));
    for (std::size_t back = 1; back <= std::min(values.size(), seen_.size()); ++back) {
      values[values.size() - back] = valueAt(seen_.size() - back);
    }
    return values;
  }

  void AddQueryLine() {
    const Values rates = ValuesFor(kNames, [&](std::size_t i) { return QueryRate(seen_, i); });
    // Each is the rate since the moment before.
    const std::size_t shown = std::min(rates.size() + 1, seen_.size());
    Add("");
    Add("queries in the last " +
        Duration(SecondsBetween(*(seen_.end() - static_cast<long>(shown)), seen_.back())) +
        ": at most " + Rate(Most(rates)) + " a second");
    Add(Formatted("%9s a second  ", Rate(rates.back().value_or(0)).c_str()) +
        Coloured(kCyan, LineOf(rates)));
  }

  void AddCounts(const char* title, Counts counts) {
    const double total = Sum(now_.*counts);
    const double recent = minuteAgo_ == nullptr ? 0 : total - Sum(*minuteAgo_->told.*counts);
    Add(Row(title, total) + (recent > 0 ? Formatted("%15s  in the last ", Grouped(recent).c_str()) +
                                              Duration(SecondsBetween(*minuteAgo_, seen_.back()))
                                        : ""));
    for (const auto& [name, count] : now_.*counts) {
      const double lately =
          recent > 0 ? count - CountOf(*minuteAgo_->told.*counts, name).value_or(0) : 0;
      if (count > 0) {
        Add(Row("  " + name, count) + Formatted("%4.0f %%", 100 * count / total) +
            (lately > 0 ? Formatted("%9s  ", Grouped(lately).c_str()) +
                              Coloured(kCyan, Bar(lately / recent, columns_ - kDrawn))
                        : ""));
      }
    }
  }

  void AddServer(const Snapshot::Server& server) {
    const auto roundTrip = CountOf(now_.roundTrips, server.address);
    const Values roundTrips = ValuesFor(kDrawn, [&](std::size_t i) {
      return seen_[i].told ? CountOf(seen_[i].told->roundTrips, server.address) : std::nullopt;
    });
    Add(Formatted("  %-18s", server.address.c_str()) +
        Coloured(server.silentFor ? kRed : kGreen, Formatted("%-18s", StateOf(server).c_str())) +
        Formatted("%8s  ", roundTrip ? Formatted("%.0f ms", *roundTrip).c_str() : "") +
        Coloured(kCyan, LineOf(roundTrips)));
  }

  const Snapshot& now_;
  const History& seen_;
  const int columns_;
  const bool coloured_;
  const Moment* minuteAgo_;
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> StatusLines(const Snapshot& now) {
  return Page(now, {}, 0, false).Lines();
}

std::vector<std::string> PageLines(const History& seen, int columns, bool coloured) {
  const auto last = std::ranges::find_if(
      seen.rbegin(), seen.rend(), [](const Moment& moment) { return moment.told.has_value(); });
  return Page(*last->told, seen, columns, coloured).Lines();
}

std::string OneLine(const History& seen) {
  if (!seen.back().told) {
    return "no host answers";
  }
  const Snapshot& now = *seen.back().told;
  std::string line = now.state + ", " + Rate(QueryRate(seen, seen.size() - 1).value_or(0)) +
                     " queries a second, " +
                     Grouped(CountOf(now.outcomes, "still waiting").value_or(0)) + " waiting";
  for (const Snapshot::Server& server : now.servers) {
    const auto roundTrip = CountOf(now.roundTrips, server.address);
    line += ", " + server.address + " " + StateOf(server) +
            (roundTrip ? Formatted(" %.0f ms", *roundTrip) : "");
  }
  return line + ", " + Grouped(Sum(now.keptAway)) + " kept away, " + Grouped(now.restarts) +
         " restarts";
}
