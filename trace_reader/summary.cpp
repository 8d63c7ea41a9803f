#include "trace_reader/summary.h"

#include <algorithm>
#include <iterator>
#include <numeric>

#include "trace_reader/pattern.h"

namespace {

Table TallyTable(const std::string& title, const std::string& column, const Tally& tally) {
  Table table{title, {column}, {}};
  for (const auto& [label, number] : tally) {
    table.rows.push_back({label, {number}});
  }
  return table;
}

// The most frequent texts, and what all others together come to.
Table FrequentTable(const std::string& title, const Frequent& texts, std::size_t count) {
  Table table{title, {"queries"}, {}};
  std::uint64_t others = texts.total();
  for (const auto& [text, number] : texts.Most(count)) {
    table.rows.push_back({Printable(text), {number}});
    others -= number;
  }
  if (others > 0) {
    table.rows.push_back({"(others)", {others}});
  }
  if (texts.missed() > 0) {
    table.title += ", each counted up to " + std::to_string(texts.missed()) + " times too seldom";
  }
  return table;
}

// "1,234,567", right in its column.
std::string Aligned(std::string text) {
  constexpr std::size_t kWidth = 14;
  for (std::size_t at = text.size(); at > 3 && text[0] <= '9';) {
    text.insert(at -= 3, ",");
  }
  return std::string(kWidth - std::min(text.size(), kWidth), ' ') + text;
}

}  // namespace

void Summary::Add(const Story& story) {
  constexpr std::uint64_t kRows = 200;
  ++outcomes_[story.outcome];
  asked_.Add(story.name);
  if (story.outcome == kNoSuchName || story.outcome == kUnanswered) {
    (story.outcome == kNoSuchName ? missing_ : unanswered_).Add(story.name);
  }
  for (; story.number / step_ >= kRows; step_ *= 2) {  // half as many rows, twice as many queries
    for (std::size_t i = 0; i < course_.size(); ++i) {
      const auto row = std::exchange(course_[i], {});
      std::transform(row.begin(), row.end(), course_[i / 2].begin(), course_[i / 2].begin(),
                     std::plus<>());
    }
    course_.resize((course_.size() + 1) / 2);
  }
  const auto at = static_cast<std::size_t>(story.number / step_);
  course_.resize(std::max(course_.size(), at + 1));
  ++course_[at][story.outcome];

  std::deque<Story>& kept = kept_[story.outcome == kAnswered || story.outcome == kFromMap ? 0 : 1];
  kept.push_back(story);
  if (kept.size() > kKept) {
    kept.pop_front();
  }
}

std::vector<Table> Summary::Tables(const Counts& counts, std::size_t names) const {
  Table outcomes{"Outcomes", {"queries"}, {{"all queries", {asked_.total()}}}};
  for (std::size_t i = 0; i < std::size(kOutcomes); ++i) {
    if (outcomes_[i] > 0) {
      outcomes.rows.push_back({std::string(kOutcomes[i]), {outcomes_[i]}});
    }
  }
  Table servers{"Servers", {"asked", "answered", "no such name", "silent", "not sent"}, {}};
  for (auto [server, replies] : counts.servers) {
    std::vector<std::uint64_t> numbers(1);
    for (std::size_t i = 1; i < servers.columns.size(); ++i) {
      numbers.push_back(replies[servers.columns[i]]);
    }
    numbers[0] = std::accumulate(numbers.begin(), numbers.end(), std::uint64_t{0});
    servers.rows.emplace_back(server, numbers);
  }
  Tally notes = counts.notes;
  notes["lines"] = counts.lines;
  std::vector<Table> tables = {
      outcomes,
      servers,
      FrequentTable("Names asked most", asked_, names),
      FrequentTable("Names nobody has", missing_, names),
      FrequentTable("Names not answered", unanswered_, names),
      TallyTable("Ends of workers, and starts that failed", "times", counts.ends),
      FrequentTable("Answers from another than the server that was asked, by sender",
                    counts.wrongSenders, names),
      FrequentTable("Answers under an identifier that nobody waits for, by sender",
                    counts.unknownIdentifiers, names),
      TallyTable("The trace", "", notes)};
  std::erase_if(tables, [](const Table& table) { return table.rows.empty(); });
  return tables;
}

Table Summary::Course() const {
  Table table{std::to_string(step_), {std::begin(kOutcomes), std::end(kOutcomes)}, {}};
  for (std::size_t i = 0; i < course_.size(); ++i) {
    table.rows.push_back({std::to_string(i * step_), {course_[i].begin(), course_[i].end()}});
  }
  return table;
}

std::string Text(const std::vector<Table>& tables) {
  std::string text;
  for (const Table& table : tables) {
    text += (text.empty() ? "" : "\n") + table.title + "\n";
    if (table.columns.size() > 1) {
      for (const std::string& column : table.columns) {
        text += Aligned(column);
      }
      text += "\n";
    }
    for (const auto& [label, numbers] : table.rows) {
      for (const std::uint64_t number : numbers) {
        text += Aligned(std::to_string(number));
      }
      text += "  " + label + "\n";
    }
  }
  return text;
}
